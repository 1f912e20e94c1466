/* The stubless proxy refers to rpcrt4's IUnknown proxies, which mingw's headers declare for C++
   only; the generated proxy sources are C. */
#pragma once

#include <unknwn.h>

HRESULT STDMETHODCALLTYPE IUnknown_QueryInterface_Proxy(IUnknown* This, REFIID riid, void** ppv);
ULONG STDMETHODCALLTYPE IUnknown_AddRef_Proxy(IUnknown* This);
ULONG STDMETHODCALLTYPE IUnknown_Release_Proxy(IUnknown* This);
