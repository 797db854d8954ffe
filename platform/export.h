// VARNEL_API marks what varnel.dll exports. A program that links the code statically defines VARNEL_STATIC.
#pragma once

#if defined(_WIN32) && defined(VARNEL_BUILDING)
#define VARNEL_API __declspec(dllexport)
#elif defined(_WIN32) && !defined(VARNEL_STATIC)
#define VARNEL_API __declspec(dllimport)
#else
#define VARNEL_API
#endif
