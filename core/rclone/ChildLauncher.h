#pragma once

#include <sys/types.h>

namespace brimvale {

// Everything a new child needs, made before it is forked: the child allocates nothing and
// calls only what is safe between fork and exec.
struct ChildLaunchPlan {
    const char* executable = nullptr;
    char* const* arguments = nullptr;   // null-terminated, the program name first
    char* const* environment = nullptr; // null-terminated
    // Descriptors that become the child's standard input, output and error; -1 keeps ours.
    int standardInput = -1;
    int standardOutput = -1;
    int standardError = -1;
    bool standardInputFromNullDevice = false;
    bool outputsToNullDevice = false; // both standard output and standard error
};

// Starts a child as the plan says and returns its process id; throws std::system_error when
// it could not be started (fork failed, or exec did: missing program, no permission).
//
// The child has default signal dispositions and an empty signal mask, no descriptor of ours
// but the three it was given, and it is sent SIGTERM when this process dies, however it dies
// (PR_SET_PDEATHSIG; a child whose parent is already gone by then exits at once). The system
// sends that signal when the *thread* that forked the child ends, not the process, so every
// child is forked by one spawning thread that lives as long as the process; the caller's own
// thread may end while its child runs on.
//
// Thread safety: any thread; launches are made one at a time.
pid_t launchChild(const ChildLaunchPlan& plan);

} // namespace brimvale
