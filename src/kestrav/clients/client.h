#ifndef KESTRAV_CLIENTS_CLIENT_H_
#define KESTRAV_CLIENTS_CLIENT_H_

#include <cstdint>

#include "kestrav/format/log_message.h"
#include "kestrav/host/api.h"
#include "kestrav/host/text/string.h"
#include "kestrav/types/client_id_set.h"

namespace kestrav {

// Implemented by every component that is recorded and played back. The registry holds a plain
// pointer: unregister a client before it goes away. The questions are asked under the registry's
// lock, from any thread, and must be answered without waiting for the recorder.
class KESTRAV_API IClient {
 public:
  // kNoId: the registry hands out an id. 0 to 20: a fixed id of the client's own choice.
  explicit IClient(std::uint16_t id = kNoId) : client_id(id) {}
  IClient(const IClient&) = delete;
  IClient& operator=(const IClient&) = delete;
  virtual ~IClient() = default;

  // Whether the client wants all of its records from before a start offset at once.
  virtual bool AcceptsPlaybackOffsetData() = 0;

  // 3 to 50 characters, the first three of them letters; always the same.
  virtual String GetClientStringID() const = 0;

  // Whether the user may be offered the client for recording, for playback.
  virtual bool IsUserSelectableForLogging() = 0;
  virtual bool IsUserSelectableForPlayback() = 0;

  // Takes one recorded message of this client, which goes with the call. Of several instances the
  // answer of the last one counts: false ends the playback.
  virtual bool OnPlaybackData(const ILogMessage& message);

  // Takes a control string of free form. Nobody looks at the result.
  virtual bool HandleConfigControlString(const String& control);

  // Granted by the registry; every message that the client writes carries it.
  std::uint16_t client_id;
};

}  // namespace kestrav

#endif  // KESTRAV_CLIENTS_CLIENT_H_
