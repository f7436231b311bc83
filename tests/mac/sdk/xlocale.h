// What libc++ asks of macOS's locales.
#pragma once

#include <locale.h>
#include <stdarg.h>
#include <stddef.h>
#include <time.h>
#include <wchar.h>
#include <wctype.h>

extern "C" {
size_t ___mb_cur_max_l(locale_t);
#define MB_CUR_MAX_L(locale) ___mb_cur_max_l(locale)

wint_t btowc_l(int, locale_t);
int wctob_l(wint_t, locale_t);
lconv* localeconv_l(locale_t);
size_t mbrlen_l(const char*, size_t, mbstate_t*, locale_t);
size_t mbrtowc_l(wchar_t*, const char*, size_t, mbstate_t*, locale_t);
size_t mbsnrtowcs_l(wchar_t*, const char**, size_t, size_t, mbstate_t*, locale_t);
size_t mbsrtowcs_l(wchar_t*, const char**, size_t, mbstate_t*, locale_t);
int mbtowc_l(wchar_t*, const char*, size_t, locale_t);
size_t wcrtomb_l(char*, wchar_t, mbstate_t*, locale_t);
size_t wcsnrtombs_l(char*, const wchar_t**, size_t, size_t, mbstate_t*, locale_t);

int asprintf_l(char**, locale_t, const char*, ...);
int snprintf_l(char*, size_t, locale_t, const char*, ...);
int sscanf_l(const char*, locale_t, const char*, ...);
double strtod_l(const char*, char**, locale_t);
float strtof_l(const char*, char**, locale_t);
long double strtold_l(const char*, char**, locale_t);
long long strtoll_l(const char*, char**, int, locale_t);
unsigned long long strtoull_l(const char*, char**, int, locale_t);
}
