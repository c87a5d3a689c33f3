// The implementation of fmt, compiled once. Debian has fmt as a shared library or as headers that
// compile it into every unit: the first costs memory in a process that runs all day, the second
// five seconds a unit.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

template FMT_API void vformat_to(buffer<char>&, string_view,
                                 basic_format_args<FMT_BUFFER_CONTEXT(char)>, locale_ref);
template FMT_API auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template FMT_API auto decimal_point_impl(locale_ref) -> char;

}  // namespace detail
FMT_END_NAMESPACE
