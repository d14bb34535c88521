/// \file What the headers of the interpreter have to know of 64-bit Windows, in place of the pyconfig.h of this system.
#pragma once

#include <io.h>
#include <stdio.h>

#define MS_WINDOWS
#define Py_ENABLE_SHARED 1
#define HAVE_DECLSPEC_DLL 1
#define HAVE_WCHAR_H 1
#define NT_THREADS 1
#define WITH_PYMALLOC 1
#define WITH_MIMALLOC 1
#define SIZEOF_VOID_P 8
#define SIZEOF_SIZE_T 8
#define SIZEOF_LONG 4
#define SIZEOF_LONG_LONG 8
#define SIZEOF_WCHAR_T 2
