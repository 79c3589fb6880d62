/* SPDX-License-Identifier: MIT */
/* A plain C library that needs the same objects as ours and calls none of them. */
__attribute__((visibility("default"))) int start_plain(void);

int start_plain(void)
{
    return 0;
}
