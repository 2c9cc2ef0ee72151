#include "log_clock.h"

#include <algorithm>

#include "text.h"

namespace kestrav::tool {

void LogClock::AppendUtc(std::string& out, std::uint32_t time_stamp) {
  const std::int64_t unix_ms = UnixMs(time_stamp);
  if (unix_ms / 1000 != scnds_) {
    scnds_ = unix_ms / 1000;
    text_ = Utc(scnds_);  // 2020-02-07 02:14:17 UTC
    text_.resize(text_.size() - 4);
    std::replace(text_.begin(), text_.end(), ' ', 'T');
  }
  const auto ms = static_cast<unsigned>(unix_ms % 1000);
  const char fraction[] = {'.', static_cast<char>('0' + ms / 100),
                           static_cast<char>('0' + ms / 10 % 10), static_cast<char>('0' + ms % 10),
                           'Z'};
  out += text_;
  out.append(fraction, sizeof(fraction));
}

}  // namespace kestrav::tool
