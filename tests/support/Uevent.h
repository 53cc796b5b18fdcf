#pragma once

#include <string>
#include <vector>

namespace lumacast::test {

// A message in the kernel's format: "action@devpath\0ACTION=action\0DEVPATH=devpath\0
// SUBSYSTEM=subsystem\0<extra...>\0SEQNUM=n\0".
std::string kernelUevent(const std::string& action, const std::string& devpath,
                         const std::string& subsystem, const std::vector<std::string>& extra = {});

// Sends raw bytes to the uevent multicast group of the current network namespace, as the
// kernel does. Needs CAP_NET_ADMIN there (a test namespace has it). False on failure.
bool sendUevent(const std::string& message);

}  // namespace lumacast::test
