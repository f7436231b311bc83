// The runtime's own names. Which type BOOL has depends on the processor.
#pragma once

#if defined(__arm64__)
typedef bool BOOL;
#define YES __objc_yes
#define NO __objc_no
#else
typedef signed char BOOL;
#define YES __objc_yes
#define NO __objc_no
#endif

#define nil nullptr
#define Nil nullptr
