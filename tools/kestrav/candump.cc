#include "candump.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "can_frame.h"
#include "kestrav/host/memory/byte_order.h"
#include "trace_parser.h"

// The log format of candump: `(1611136682.761619) can0 200#02020221022EC000`.

namespace kestrav::tool {
namespace {

bool ReadHex(std::string_view text, std::uint32_t& value) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, 16);
  return error == std::errc() && stop == end;
}

// Takes what is before `delimiter` off the front of `text`, and the delimiter.
bool TakeUpTo(std::string_view& text, char delimiter, std::string_view& part) {
  const std::size_t at = text.find(delimiter);
  if (at == std::string_view::npos) return false;
  part = text.substr(0, at);
  text.remove_prefix(at + 1);
  return true;
}

bool ReadTime(std::string_view text, std::int64_t& time_ms) {
  constexpr std::size_t kMostFractionDigits = 9;
  std::string_view whole;
  std::int64_t scnds = 0;
  std::int64_t fraction = 0;
  if (!TakeUpTo(text, '.', whole) || whole.size() > 12 || !ReadDigits(whole, scnds)) return false;
  if (text.size() < 3 || text.size() > kMostFractionDigits || !ReadDigits(text, fraction)) {
    return false;
  }
  if (!ReadDigits(text.substr(0, 3), fraction)) return false;
  time_ms = scnds * 1000 + fraction;
  return true;
}

bool ReadId(std::string_view text, std::uint32_t& id) {
  if (!ReadHex(text, id)) return false;
  if (text.size() == 3) return id <= kCanStandardIds;
  if (text.size() != 8) return false;
  if ((id & kCanErrorFlag) != 0) return (id & ~(kCanErrorFlag | kCanExtendedIds)) == 0;
  if (id > kCanExtendedIds) return false;
  id |= kCanExtendedFlag;
  return true;
}

bool ReadRemoteLength(std::string_view text, std::uint8_t& length) {
  if (text.empty()) return true;
  if (text.size() != 1 || text[0] < '0' || text[0] > '8') return false;
  length = static_cast<std::uint8_t>(text[0] - '0');
  return true;
}

bool ReadData(std::string_view text, std::uint8_t* data, std::uint8_t& length) {
  if (text.size() % 2 != 0 || text.size() > 2 * kCanLongestData) return false;
  for (std::size_t i = 0; i < text.size() / 2; ++i) {
    std::uint32_t byte = 0;
    if (!ReadHex(text.substr(2 * i, 2), byte)) return false;
    data[i] = static_cast<std::uint8_t>(byte);
  }
  length = static_cast<std::uint8_t>(text.size() / 2);
  return true;
}

// The rest of a CAN FD frame behind its id: #, the flags, up to 64 bytes.
bool IsFdData(std::string_view text) {
  constexpr std::size_t kMostDigits = 2 + 2 * 64;
  const auto is_hex_digit = [](unsigned char c) { return std::isxdigit(c) != 0; };
  return text.size() >= 2 && text.size() <= kMostDigits && text.size() % 2 == 0 && text[0] == '#' &&
         std::all_of(text.begin() + 1, text.end(), is_hex_digit);
}

bool ReadFrame(std::string_view text, std::uint8_t* frame) {
  std::string_view id_text;
  std::uint32_t id = 0;
  if (!TakeUpTo(text, '#', id_text) || !ReadId(id_text, id)) return false;
  std::uint8_t& length = frame[4];
  if (!text.empty() && text[0] == 'R') {
    id |= kCanRemoteFlag;
    if (!ReadRemoteLength(text.substr(1), length)) return false;
  } else if (!ReadData(text, frame + kCanDataOffset, length)) {
    return false;
  }
  Memory::PutLittleEndian(frame, id);
  return true;
}

bool SplitLine(std::string_view line, CandumpLine& parts) {
  if (line.empty() || line[0] != '(') return false;
  line.remove_prefix(1);
  if (!TakeUpTo(line, ')', parts.time) || line.empty() || line[0] != ' ') return false;
  line.remove_prefix(1);
  if (!TakeUpTo(line, ' ', parts.interface) || parts.interface.empty()) return false;
  parts.frame = line;
  return true;
}

class CandumpParser final : public TraceParser {
 public:
  ParsedLine Parse(std::string_view line) override {
    constexpr std::uint16_t kFrameDataId = 1;
    ParsedLine parsed;
    CandumpLine parts;
    std::int64_t time_ms = 0;
    std::uint8_t frame[kCanFrameSize] = {};
    if (!SplitLine(line, parts) || !ReadTime(parts.time, time_ms) ||
        !ReadFrame(parts.frame, frame)) {
      parsed.payload = line;
      return parsed;
    }
    parsed.data_id = kFrameDataId;
    parsed.time_ms = time_ms;
    parsed.payload.assign(reinterpret_cast<const char*>(frame), kCanFrameSize);
    is_unix_time_ = is_unix_time_ || IsUnixTime(time_ms);
    return parsed;
  }

  std::optional<std::int64_t> UnixOffsetMs() const override {
    return is_unix_time_ ? std::optional<std::int64_t>(0) : std::nullopt;
  }

 private:
  bool is_unix_time_ = false;
};

}  // namespace

bool ReadOtherFrame(std::string_view line, CandumpLine& parts) {
  std::int64_t time_ms = 0;
  if (!SplitLine(line, parts) || !ReadTime(parts.time, time_ms)) return false;
  std::string_view data = parts.frame;
  const bool directed = data.ends_with(" R") || data.ends_with(" T");
  if (directed) data.remove_suffix(2);
  std::uint8_t frame[kCanFrameSize] = {};
  if (directed && ReadFrame(data, frame)) return true;
  std::string_view id_text;
  std::uint32_t id = 0;
  return TakeUpTo(data, '#', id_text) && ReadId(id_text, id) && IsFdData(data);
}

bool ReadDigits(std::string_view text, std::int64_t& value) {
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  if (text.empty() || !std::all_of(text.begin(), text.end(), is_digit)) return false;
  return std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc();
}

std::unique_ptr<TraceParser> MakeCandumpParser() { return std::make_unique<CandumpParser>(); }

}  // namespace kestrav::tool
