#pragma once

#include <stddef.h>

extern "C" size_t malloc_size(const void*);
