// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// A C library loaded when one of its functions is first needed, not when
// the program starts. A file lists the functions it calls once, as an
// X-macro, and gets a table of pointers that is complete or absent:
//
//   #define XLIB_FUNCTIONS(F) F(XOpenDisplay) F(XCloseDisplay)
//   VX_LAZY_LIBRARY(XlibApi, xlib, "libX11.so.6", XLIB_FUNCTIONS)
//   ... xlib() ? xlib()->p_XOpenDisplay(nullptr) : ...
#pragma once

#include <dlfcn.h>

#define VX_LAZY_DECLARE(name) decltype(&::name) p_##name = nullptr;
#define VX_LAZY_RESOLVE(name)                                                                      \
    api->p_##name = reinterpret_cast<decltype(&::name)>(::dlsym(handle, #name));                   \
    complete = complete && api->p_##name;

// Defines struct Type with one pointer per listed function, and
// `const Type *accessor()`: nullptr when the library or one of them is
// missing. The library stays loaded for the life of the program.
#define VX_LAZY_LIBRARY(Type, accessor, soname, FUNCTIONS)                                         \
    VX_LAZY_LIBRARY_DECLARE(Type, accessor, FUNCTIONS)                                             \
    VX_LAZY_LIBRARY_DEFINE(Type, accessor, soname, FUNCTIONS)

// The same in two halves, for a library that several files call: the
// declaration in a shared header, the definition in one of the files.
#define VX_LAZY_LIBRARY_DECLARE(Type, accessor, FUNCTIONS)                                         \
    struct Type                                                                                    \
    {                                                                                              \
        FUNCTIONS(VX_LAZY_DECLARE)                                                                 \
    };                                                                                             \
    const Type *accessor();

#define VX_LAZY_LIBRARY_DEFINE(Type, accessor, soname, FUNCTIONS)                                  \
    const Type *accessor()                                                                         \
    {                                                                                              \
        static const Type *loaded = []() -> const Type * {                                         \
            void *handle = ::dlopen(soname, RTLD_NOW | RTLD_LOCAL);                                \
            if (!handle)                                                                           \
                return nullptr;                                                                    \
            auto *api = new Type;                                                                  \
            bool complete = true;                                                                  \
            FUNCTIONS(VX_LAZY_RESOLVE)                                                             \
            return complete ? api : nullptr;                                                       \
        }();                                                                                       \
        return loaded;                                                                             \
    }
