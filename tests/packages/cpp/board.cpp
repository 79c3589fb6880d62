// SPDX-License-Identifier: MIT
// The same in C++: built with the CMake package.
#include <prod_common.h>

#include <iostream>
#include <string>

int main()
{
    std::string name(CFM_VALUE_SIZE, '\0');
    prod_cfm_get_val("board.name", name.data());
    std::cout << "board: " << (name[0] != '\0' ? name.c_str() : "no name") << '\n';
}
