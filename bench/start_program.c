/* SPDX-License-Identifier: MIT */
/* A program that starts, with a library, and ends. */
int main(void)
{
    return 0;
}
