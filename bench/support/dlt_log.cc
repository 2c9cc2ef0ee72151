#include "support/dlt_log.h"

#include <dlt.h>

#include <cstdlib>
#include <limits>
#include <vector>

namespace kestrav::bench {
namespace {

DltContext context;

}  // namespace

DltLog::DltLog(const std::string& path) {
  setenv("DLT_LOG_MSG_BUF_LEN", "8192", 1);  // for one payload and its header
  good_ = dlt_init_file(path.c_str()) == DLT_RETURN_OK &&
          dlt_set_filesize_max(std::numeric_limits<unsigned>::max()) == DLT_RETURN_OK &&
          dlt_register_app("BNCH", "benchmark") >= DLT_RETURN_OK &&
          dlt_register_context(&context, "BNCH", "benchmark") >= DLT_RETURN_OK;
}

DltLog::~DltLog() {
  dlt_unregister_context(&context);
  dlt_unregister_app();
  dlt_free();
}

bool DltLog::Write(const std::uint8_t* data, std::uint32_t size) {
  DltContextData message;
  // The interface takes a pointer to bytes that may change, and does not change them.
  void* const bytes = const_cast<std::uint8_t*>(data);
  return dlt_user_log_write_start(&context, &message, DLT_LOG_INFO) == DLT_RETURN_TRUE &&
         dlt_user_log_write_raw(&message, bytes, static_cast<std::uint16_t>(size)) ==
             DLT_RETURN_OK &&
         dlt_user_log_write_finish(&message) == DLT_RETURN_OK;
}

}  // namespace kestrav::bench
