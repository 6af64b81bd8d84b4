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

// For class templates that users instantiate: a program and its plug-ins share one type identity, but each compiles the
// members itself instead of importing them.
#if defined(_WIN32)
#define TEVTOOLS_TEMPLATE_API
#else
#define TEVTOOLS_TEMPLATE_API TEVTOOLS_API
#endif

// A compiler's own keyword on Windows. A macro and not an alias, because "unsigned __int64" must be spellable.
#if !defined(_WIN32) && !defined(__int64)
#define __int64 long long
#endif

// Makes the compiler reject a static object that has no constant initializer. Empty where the address of an imported
// object is not a constant.
#if defined(_WIN32)
#define X_CONSTINIT
#elif defined(__clang__)
#define X_CONSTINIT [[clang::require_constant_initialization]]
#elif defined(__GNUC__)
#define X_CONSTINIT __constinit
#else
#define X_CONSTINIT
#endif

// The system's structures of points, sizes and rectangles where it has none. On Windows <windows.h> defines them, and
// is included first by programs that use the classes over them.
#if !defined(_WIN32)
struct tagPOINT
{
    int x;
    int y;
};

struct tagPOINTS
{
    short x;
    short y;
};

struct tagSIZE
{
    int cx;
    int cy;
};

/// The right and bottom edges are exclusive.
struct tagRECT
{
    int left;
    int top;
    int right;
    int bottom;
};
#endif
