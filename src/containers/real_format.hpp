// The real-number format's option is looked up once and kept; the option
// family tells the string helpers when that option goes away.
#pragma once

struct D_OPTION;

namespace vq::strings {

void forgetRealNumberFormatOption(const D_OPTION *option) noexcept;

}  // namespace vq::strings
