// SPDX-License-Identifier: MIT
#pragma once

/**
 * The symbol of a C library call that takes or tells file offsets or sizes, for dlsym(). Where a
 * long is too short for them the headers turn the call's name into this one.
 */
#ifdef _FILE_OFFSET_BITS
#define WIDE(name) name "64"
#else
#define WIDE(name) name
#endif
