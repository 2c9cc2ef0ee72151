#include "report_track.h"

#include <charconv>
#include <cmath>
#include <system_error>

#include "nmea_sentence.h"

namespace kestrav::tool {
namespace {

std::optional<double> Number(std::string_view text) {
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
  if (error != std::errc() || stop != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

// [d]ddmm.mmm and its hemisphere, in degrees.
std::optional<double> Degrees(std::string_view angle, std::string_view hemisphere, char negative,
                              double limit) {
  const std::optional<double> value = Number(angle);
  if (!value || *value < 0 || hemisphere.size() != 1) return std::nullopt;
  const double whole = std::floor(*value / 100);
  const double degrees = whole + (*value - 100 * whole) / 60;
  if (degrees > limit) return std::nullopt;
  return hemisphere[0] == negative ? -degrees : degrees;
}

// `first`: the field of the latitude.
std::optional<Fix> ReadPlace(std::string_view body, std::size_t first) {
  const auto field = [&](std::size_t number) { return SentenceField(body, first + number); };
  const auto latitude = Degrees(field(0), field(1), 'S', 90);
  const auto longitude = Degrees(field(2), field(3), 'W', 180);
  if (!latitude || !longitude) return std::nullopt;
  return Fix{*latitude, *longitude, std::nullopt};
}

std::optional<Fix> ReadRmc(std::string_view body) {
  constexpr double kKmhPerKnot = 1.852;
  if (SentenceField(body, 2) != "A") return std::nullopt;
  std::optional<Fix> fix = ReadPlace(body, 3);
  const std::optional<double> knots = Number(SentenceField(body, 7));
  if (fix) fix->speed_kmh = knots.value_or(0) * kKmhPerKnot;
  return fix;
}

std::optional<Fix> ReadGga(std::string_view body) {
  const std::string_view quality = SentenceField(body, 6);
  if (quality.empty() || quality == "0") return std::nullopt;
  return ReadPlace(body, 2);
}

}  // namespace

std::optional<Fix> ReadFix(std::string_view sentence) {
  if (sentence.empty() || sentence[0] != '$') return std::nullopt;
  while (!sentence.empty() && (sentence.back() == '\r' || sentence.back() == '\n')) {
    sentence.remove_suffix(1);
  }
  const std::string_view address = SentenceAddress(sentence);
  const bool rmc = address.ends_with("RMC");
  if (!rmc && !address.ends_with("GGA")) return std::nullopt;
  std::string_view body;
  if (CheckSentence(sentence, body) == SentenceChecksum::kWrong) return std::nullopt;
  return rmc ? ReadRmc(body) : ReadGga(body);
}

void Track::Add(std::int64_t at_ms, const Fix& fix) {
  if (has_speed_ && !fix.speed_kmh) return;
  if (!has_speed_ && fix.speed_kmh) {
    *this = Track();
    has_speed_ = true;
  }
  if (fixes_++ % step_ != 0) return;
  if (points_.size() == kMostPoints) {
    Thin();
    if ((fixes_ - 1) % step_ != 0) return;
  }
  points_.push_back({at_ms, fix});
}

void Track::Thin() {
  for (std::size_t i = 0; 2 * i < points_.size(); ++i) points_[i] = points_[2 * i];
  points_.resize((points_.size() + 1) / 2);
  step_ *= 2;
}

}  // namespace kestrav::tool
