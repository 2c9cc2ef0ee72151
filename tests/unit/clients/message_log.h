#ifndef KESTRAV_TESTS_UNIT_CLIENTS_MESSAGE_LOG_H_
#define KESTRAV_TESTS_UNIT_CLIENTS_MESSAGE_LOG_H_

#include <string>
#include <vector>

#include "kestrav/format/log_message.h"
#include "kestrav/types/sinks.h"
#include "support/recording_client.h"

namespace kestrav::test {

// Remembers the messages it was given and answers what it is told to.
class MessageLog final : public IMessageSink {
 public:
  bool Write(const SmartPtr::Ptr<ILogMessage>& message) override {
    const auto* const data = reinterpret_cast<const char*>(message->GetDataPointer());
    messages.push_back(
        {message->GetClientID(), message->GetDataID(), std::string(data, message->GetDataSize())});
    return takes;
  }

  std::vector<Delivery> messages;
  bool takes = true;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_CLIENTS_MESSAGE_LOG_H_
