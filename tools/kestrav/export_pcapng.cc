#include "byte_text.h"
#include "can_frame.h"
#include "can_interfaces.h"
#include "exporter.h"
#include "log_clock.h"

// A capture of CAN frames: a section header block, an interface description block in front of a
// client's first frame, an enhanced packet block a frame. Little-endian, but for the id in a frame.

namespace kestrav::tool {
namespace {

constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceDescription = 1;
constexpr std::uint32_t kEnhancedPacket = 6;
constexpr std::uint16_t kLinkTypeSocketCan = 227;

void AppendAligned(std::string& out, std::string_view bytes) {
  out += bytes;
  out.append((4 - bytes.size() % 4) % 4, '\0');
}

void AppendOption(std::string& out, std::uint16_t code, std::string_view value) {
  AppendInteger(out, code);
  AppendInteger(out, static_cast<std::uint16_t>(value.size()));
  AppendAligned(out, value);
}

// `body` is a whole number of 32-bit words.
void AppendBlock(std::string& out, std::uint32_t type, std::string_view body) {
  const auto length = static_cast<std::uint32_t>(body.size() + 12);
  AppendInteger(out, type);
  AppendInteger(out, length);
  out += body;
  AppendInteger(out, length);
}

class PcapngExporter final : public Exporter {
 public:
  explicit PcapngExporter(const ExportContext& context)
      : clock_(context.header), names_(context.names), interfaces_(context.interface) {}

  void Begin(std::string& out) override {
    constexpr std::uint32_t kByteOrder = 0x1A2B3C4D;
    constexpr std::uint64_t kLengthUnknown = ~std::uint64_t{0};
    constexpr std::uint16_t kApplication = 4;
    body_.clear();
    AppendInteger(body_, kByteOrder);
    AppendInteger(body_, std::uint16_t{1});  // version 1.0
    AppendInteger(body_, std::uint16_t{0});
    AppendInteger(body_, kLengthUnknown);
    AppendOption(body_, kApplication, "kestrav " KESTRAV_VERSION);
    AppendOption(body_, 0, {});
    AppendBlock(out, kSectionHeader, body_);
  }

  void Add(const RecordView& record, std::string& out) override {
    if (!IsCanFrame(record.payload)) return LeaveOut(record);
    bool is_new = false;
    const CanInterfaces::Interface& interface = interfaces_.Of(record.client_id, is_new);
    if (is_new) AppendInterface(out, interface.name, names_.Label(record.client_id));
    const auto unix_ms = static_cast<std::uint64_t>(clock_.UnixMs(record.time_stamp));
    body_.clear();
    AppendInteger(body_, interface.number);
    AppendInteger(body_, static_cast<std::uint32_t>(unix_ms >> 32));
    AppendInteger(body_, static_cast<std::uint32_t>(unix_ms));
    AppendInteger(body_, static_cast<std::uint32_t>(kCanFrameSize));  // captured
    AppendInteger(body_, static_cast<std::uint32_t>(kCanFrameSize));  // on the wire
    const std::string_view id = record.payload.substr(0, sizeof(std::uint32_t));
    body_.append(id.rbegin(), id.rend());
    body_ += record.payload.substr(id.size());
    AppendBlock(out, kEnhancedPacket, body_);
  }

 private:
  void AppendInterface(std::string& out, const std::string& name, const std::string& client) {
    constexpr std::uint16_t kName = 2;
    constexpr std::uint16_t kDescription = 3;
    constexpr std::uint16_t kTimeResolution = 9;
    constexpr std::size_t kLongestOption = 0xFFFF;
    body_.clear();
    AppendInteger(body_, kLinkTypeSocketCan);
    AppendInteger(body_, std::uint16_t{0});
    AppendInteger(body_, std::uint32_t{0});  // packets of any length
    AppendOption(body_, kName, name);
    AppendOption(body_, kDescription, std::string_view(client).substr(0, kLongestOption));
    AppendOption(body_, kTimeResolution, "\x03");  // milliseconds
    AppendOption(body_, 0, {});
    AppendBlock(out, kInterfaceDescription, body_);
  }

  LogClock clock_;
  const ClientNames& names_;
  CanInterfaces interfaces_;
  std::string body_;  // kept from block to block
};

}  // namespace

ExporterPtr MakePcapngExporter(const ExportContext& context) {
  return std::make_unique<PcapngExporter>(context);
}

}  // namespace kestrav::tool
