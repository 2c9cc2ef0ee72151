#ifndef KESTRAV_ENGINE_SETTINGS_FILE_H_
#define KESTRAV_ENGINE_SETTINGS_FILE_H_

#include <map>

#include "kestrav/host/api.h"
#include "kestrav/host/text/string.h"

namespace kestrav {

// Reads which clients a head unit is to record. Only the first line that begins with "binary:"
// counts; behind it stand client string ids, separated by commas and nothing else:
//
//   binary:GPS,Vehicle Bus
//
// The map holds all clients that the caller knows; those that are listed become true, the others
// false. A list of a single character is a number instead: 1 switches the client "GPS" on, anything
// else off.
//
// true: at least one client is true now. false: none is, nothing can be read, or path or map are
// empty; the map is unchanged when the file cannot be opened or was not asked for. Does not throw;
// any thread.
[[nodiscard]] KESTRAV_API bool ReadSettingsFile(std::map<String, bool>& clients,
                                                const wchar_t* path);

}  // namespace kestrav

#endif  // KESTRAV_ENGINE_SETTINGS_FILE_H_
