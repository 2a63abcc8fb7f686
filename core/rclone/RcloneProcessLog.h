#pragma once

#include <functional>
#include <string_view>

// The rclone runner's debug log: one line per child started and per child ended, written to
// the system log (syslog, ident "brimvale", debug priority, category "RcloneProcess"). Thread
// safety: every function may be called from any thread.
namespace brimvale::RcloneProcessLog {

void debug(std::string_view line);

// Where lines go instead of syslog (tests capture them). Returns the previous writer; an
// empty writer restores syslog.
using Writer = std::function<void(std::string_view line)>;
Writer setWriter(Writer writer);

} // namespace brimvale::RcloneProcessLog
