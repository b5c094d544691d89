// The library's version, in one place: the Windows version block is built from it, the command line
// prints it and the build checks that the project's version agrees.
#pragma once

#define VELMORA_VERSION_MAJOR 2
#define VELMORA_VERSION_MINOR 0
#define VELMORA_VERSION_PATCH 5
#define VELMORA_VERSION_BUILD 1
// The version block takes the number as a list and as text; both are spelled out for its compiler.
#define VELMORA_VERSION_LIST 2,0,5,1
#define VELMORA_VERSION_TEXT "2.0.5.1"
