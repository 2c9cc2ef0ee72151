#ifndef KESTRAV_TOOLS_PAYLOAD_TEXT_H_
#define KESTRAV_TOOLS_PAYLOAD_TEXT_H_

#include <string>
#include <string_view>

#include "kestrav/format/log_message.h"

namespace kestrav::tool {

// The payload's bytes; they go with the message.
std::string_view Payload(const LogMessage& message);

// Appends the payload as people read it, safe to write to a terminal: text as it is, a CAN frame as
// id#data, anything else in hex.
void AppendPayloadText(std::string& out, const LogMessage& message);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_PAYLOAD_TEXT_H_
