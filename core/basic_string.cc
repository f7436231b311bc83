#include "core/basic_string.h"

namespace stdx {

template class string_storage<char, fix_char_traits<char>, std::allocator<char>>;
template class string_storage<char16_t, fix_char_traits<char16_t>, std::allocator<char16_t>>;
template class basic_string<char>;
template class basic_string<char16_t>;

}  // namespace stdx
