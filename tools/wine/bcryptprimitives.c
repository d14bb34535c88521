// The library of this name for Wine 8, which has none: the wheel of cryptography takes its random numbers from it.
#include <windows.h>

#include <ntsecapi.h>

__declspec(dllexport) BOOL WINAPI ProcessPrng(PBYTE data, SIZE_T size) { return RtlGenRandom(data, (ULONG)size); }
