#pragma once

namespace brimvale {

// The desktop application: reads the command line (help and version need no display), then
// builds the one window around the one coordinator, brings it to the front and runs until it
// closes. Quitting stops every scan and load (a stopped scan's partial tree is saved, as
// Stop scan does) and waits for those saves. Returns the exit status.
int runApplication(int argc, char** argv);

} // namespace brimvale
