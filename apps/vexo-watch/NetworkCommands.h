#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/base/UserDirectories.h"

// vexo-watch's network mode from the command line: what it prints when the network listener
// starts, and the `pair`, `devices` and `revoke` commands. The commands work on the files of
// the user's data folder, which the running watch shares (it notices a revocation within a
// fraction of a second and accepts codes made here), so they need no connection to it and
// work the same whether it runs or not; `pair` only needs the address it published.
namespace vexo::watchapp {

// The data folder of the network mode, or nothing (with one line on standard error) when
// there is none.
std::optional<std::filesystem::path> networkFolder(const UserDirectories& directories);

// Prints the network address, the certificate's fingerprint and, on a terminal, a pairing QR
// code; publishes the address for `vexo-watch pair`. Main thread; before the loop runs.
void announceNetworkFace(const std::filesystem::path& folder, const std::string& url, const std::string& fingerprint,
                         int loopbackPort);
// Withdraws what announceNetworkFace published.
void withdrawNetworkFace(const std::filesystem::path& folder);

// The commands, on the data folder of `directories`; each returns the program's exit code.
int pairCommand(const UserDirectories& directories, bool showUrl);
int devicesCommand(const UserDirectories& directories);
int revokeCommand(const UserDirectories& directories, const std::string& name);

} // namespace vexo::watchapp
