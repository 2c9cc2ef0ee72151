#include "unit/rescue/rescue_rig.h"

namespace kestrav::test {

std::vector<std::string> Recovered::Payloads() const {
  std::vector<std::string> payloads;
  for (const ParsedRecord& record : log.records) {
    if (record.data_id != 1200) payloads.push_back(record.payload);
  }
  return payloads;
}

Recovered Recover(const Bytes& log) {
  Recovered recovered;
  BytesOutputStream out;
  recovered.result = RecoverLog(log, &out, recovered.report);
  recovered.bytes = out.Content();
  recovered.log = ParseLog(recovered.bytes);
  return recovered;
}

std::string SamplePayload(std::size_t n) {
  return "record " + std::to_string(n) + std::string(n % 7, '+');
}

std::vector<std::string> SamplePayloads(std::size_t first, std::size_t last) {
  std::vector<std::string> payloads;
  for (std::size_t n = first; n <= last; ++n) payloads.push_back(SamplePayload(n));
  return payloads;
}

LogBuilder SampleLog(Keys keys, std::size_t records) {
  LogBuilder log(keys.header, keys.data);
  log.StartClock(1000)
      .Selection(0x9000)
      .Duration((10 * static_cast<std::uint32_t>(records) + 500) / 1000 * 1000)
      .Dictionary({{"GPS", 21}, {"CAN", 3}}, 1000);
  for (std::size_t n = 1; n <= records; ++n) {
    log.Record(n % 2 == 0 ? 21 : 3, 7, static_cast<std::uint32_t>(1000 + 10 * n), SamplePayload(n));
  }
  return log;
}

}  // namespace kestrav::test
