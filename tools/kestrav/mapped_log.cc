#include "mapped_log.h"

#include <cerrno>

#include "exit_codes.h"
#include "log_file.h"
#include "text.h"

namespace kestrav::tool {

MappedLog::MappedLog(const std::string& path)
    : guard_("kestrav: " + OneLine(path) + ": can no longer be read\n") {
  if (stream_.Open(WidePath(path))) return;
  const bool special = stream_.Error() == EINVAL;
  throw Failure(path + ": " + (special ? "not a regular file" : ErrorText(stream_.Error())));
}

}  // namespace kestrav::tool
