#pragma once

// The few things that differ from compiler to compiler. Everything else in the public headers is plain C++17.

#if defined(_WIN32)
#if defined(TEVTOOLS_BUILDING)
#define TEVTOOLS_API __declspec(dllexport)
#elif defined(TEVTOOLS_STATIC)
#define TEVTOOLS_API
#else
#define TEVTOOLS_API __declspec(dllimport)
#endif
#else
#define TEVTOOLS_API __attribute__((visibility("default")))
#endif

// A compiler's own keyword on Windows. A macro and not an alias, because "unsigned __int64" must be spellable.
#if !defined(_WIN32) && !defined(__int64)
#define __int64 long long
#endif
