/* SPDX-License-Identifier: MIT */
/* A daemon of somebody else's, in C: built with what pkg-config says. */
#include <prod_common.h>
#include <stdio.h>

int main(void)
{
    static char name[CFM_VALUE_SIZE];
    char label[] = "--board--";

    prod_cfm_get_val("board.name", name);
    printf("%s: %s\n", str_trim(label, '-') != NULL ? label : "",
           name[0] != '\0' ? name : "no name");
    return 0;
}
