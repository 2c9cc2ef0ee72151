#ifndef KESTRAV_TOOLS_REPORT_TRACK_H_
#define KESTRAV_TOOLS_REPORT_TRACK_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace kestrav::tool {

// A place that a satellite receiver told of. Degrees, north and east positive.
struct Fix {
  double latitude = 0;
  double longitude = 0;
  std::optional<double> speed_kmh;  // RMC tells it, GGA does not
};

// Reads a valid position out of an RMC or GGA sentence whose checksum, if it has one, is right.
std::optional<Fix> ReadFix(std::string_view sentence);

// A client's way in bounded memory: when there are too many points every other one goes, and from
// then on every other one is left out.
class Track {
 public:
  static constexpr std::size_t kMostPoints = 4096;

  struct Point {
    std::int64_t at_ms;  // since the start of the log
    Fix fix;
  };

  // RMC alone once there is one: a receiver sends the same place in both sentences.
  void Add(std::int64_t at_ms, const Fix& fix);

  const std::vector<Point>& Points() const { return points_; }
  std::uint64_t Fixes() const { return fixes_; }  // with those that were left out

 private:
  void Thin();

  std::vector<Point> points_;
  std::uint64_t fixes_ = 0;
  std::uint64_t step_ = 1;
  bool has_speed_ = false;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_REPORT_TRACK_H_
