// SPDX-License-Identifier: MIT

// The reader of XML as a processor without x86-64's vector instructions gets it. The linker then has
// no use for the library's own.

#undef __SSE2__
#include "sys/xml_read.cpp"
