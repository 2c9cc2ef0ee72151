#include "payload_text.h"

#include "can_frame.h"
#include "text.h"

namespace kestrav::tool {

std::string_view Payload(const LogMessage& message) {
  return {reinterpret_cast<const char*>(message.GetDataPointer()), message.GetDataSize()};
}

void AppendPayloadText(std::string& out, const LogMessage& message) {
  const std::string_view payload = Payload(message);
  if (IsPrintable(payload)) {
    out += payload;
  } else if (IsCanFrame(payload)) {
    AppendCanFrame(out, payload);
  } else {
    AppendHex(out, payload);
  }
}

}  // namespace kestrav::tool
