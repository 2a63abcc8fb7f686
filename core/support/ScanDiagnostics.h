#pragma once

#include "core/support/SourceLocation.h"

#include <functional>
#include <string>
#include <string_view>

namespace brimvale::ScanDiagnostics {

// The scan log of the cloud and local scanners. Every message goes to the system log
// (syslog, ident "brimvale", category "Scan"); when BRIMVALE_SCAN_DEBUG is exactly "1" it also
// goes to standard error as "[Scan] <UTC time> <message> — <file>:<line>". Thread safety: log()
// may be called from any thread; standard-error lines are written by one writer thread, in the
// order they were logged, one whole line per write, and the caller never waits for the write.

// The subsystem the system log records: the application's identifier once the application
// entry sets it, else "BrimvaleProgressiveAppExec".
std::string subsystem();
void setSubsystem(std::string identifier);

// True only when BRIMVALE_SCAN_DEBUG is present and equal to "1"; read on every call.
bool stdoutEnabled();

void log(std::string_view message, SourceLocation where = SourceLocation::current());

// Waits until every standard-error line queued so far has been written.
void waitForPendingWrites();

// Where system-log lines go (category, then the message with its suffix). The default writes
// to syslog; tests install their own. Returns the previous writer.
using SystemLogWriter = std::function<void(std::string_view category, std::string_view line)>;
SystemLogWriter setSystemLogWriter(SystemLogWriter writer);

// The time stamp of standard-error lines: ISO 8601 in UTC, such as 2024-05-01T12:34:56Z.
std::string iso8601UTCNow();

} // namespace brimvale::ScanDiagnostics
