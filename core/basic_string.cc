#include "core/basic_string.h"

namespace stdx {

template class basic_string<char>;
template class basic_string<char16_t>;

}  // namespace stdx
