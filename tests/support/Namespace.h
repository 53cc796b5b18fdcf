#pragma once

#include <functional>
#include <string>

namespace lumacast::test {

enum class NamespaceResult { kEntered, kRefused };

// Moves the calling process into a new user + mount + network namespace, as
// `unshare -rmn` does: the caller becomes root inside it, mounts stay private, and the
// only network device is a down loopback. Call it while the process has one thread.
NamespaceResult enterUserMountNetNamespace(std::string* why);

// True once enterUserMountNetNamespace has succeeded in this process (or an ancestor).
bool inTestNamespace();

// For a program's main, before it starts any thread: enters a namespace as above (a fresh
// one when `fresh`, otherwise only when not inside one already) and brings loopback up.
// Where namespaces are refused it prints why and exits with kSkipExitCode, or with 1 when
// LUMACAST_REQUIRE_NAMESPACES=1 says they must work here.
void enterNamespaceOrExit(bool fresh = false);

// For a forked child inside a test namespace: fresh network and mount namespaces of its
// own, with loopback up. Under an emulator whose own threads make the kernel refuse a mount
// namespace (EINVAL), only the network one; the child then shares its parent's mounts and
// must undo its own. False with the reason when neither could be made.
bool enterFreshNetAndMountNamespaces(std::string* why);

// Brings an interface up (SIOCSIFFLAGS); false with errno set on failure.
bool setInterfaceUp(const char* name);

// Puts the camera's address, 192.168.111.10, on this namespace's loopback, so that a camsim
// there serves the link's real address and port without a fake device. True once it is
// there (also when it was already). Only ever inside a namespace of the test's own.
bool putCameraAddressOnLoopback();

// Runs a shell command; returns its exit status (or -1).
int runCommand(const std::string& command);
// Runs a command and returns its standard output.
std::string commandOutput(const std::string& command);

// Exit code of a test program that cannot run here; ctest reports it as skipped.
constexpr int kSkipExitCode = 77;

}  // namespace lumacast::test
