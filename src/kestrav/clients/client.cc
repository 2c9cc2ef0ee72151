#include "kestrav/clients/client.h"

namespace kestrav {

// A client that takes no data of its own answers as it does for its selectability.
bool IClient::OnPlaybackData(const ILogMessage& /*message*/) {
  return IsUserSelectableForPlayback();
}

bool IClient::HandleConfigControlString(const String& /*control*/) { return true; }

}  // namespace kestrav
