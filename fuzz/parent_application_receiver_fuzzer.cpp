// The phone side's datagram path: each input is sent as one datagram to a listening
// ParentApplicationReceiver, which must drop it with a log line or hand on a dictionary,
// and keep listening.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/ipc/DatagramEndpoint.h"
#include "platform/ipc/ParentApplicationReceiver.h"
#include "platform/runtime/DeterministicRunLoop.h"

using namespace vexo;

namespace {

struct Receiver {
    Receiver() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vexo-fuzz-receiver-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            std::abort();
        container = pattern;
        receiver =
            std::make_unique<ipc::ParentApplicationReceiver>(container, loop, [this](const plist::Value& dictionary) {
                if (dictionary.asDictionary() == nullptr)
                    __builtin_trap();
                ++delivered;
            });
        if (!receiver->isListening())
            std::abort();
        ipc::SocketDirectory directory;
        if (ipc::kParentApplicationEndpoint.openDirectory(container, ipc::SocketDirectory::Create::No, directory) !=
            ipc::SocketDirectory::Lookup::Opened)
            std::abort();
        address = *directory.address(ipc::kParentApplicationEndpoint.socketName);
        socketDirectory = std::move(directory);
        sender = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }

    ~Receiver() {
        receiver.reset();
        std::error_code ignored;
        std::filesystem::remove_all(container, ignored);
    }

    std::filesystem::path container;
    runtime::DeterministicRunLoop loop;
    std::unique_ptr<ipc::ParentApplicationReceiver> receiver;
    ipc::SocketDirectory socketDirectory;
    sockaddr_un address{};
    int sender = -1;
    std::size_t delivered = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Receiver* const receiver = new Receiver;
    // Larger datagrams than the socket buffer are refused by the kernel before we see them.
    if (::sendto(receiver->sender, data, size, 0, reinterpret_cast<const sockaddr*>(&receiver->address),
                 sizeof receiver->address) < 0)
        return 0;
    receiver->loop.runUntilIdle();
    if (!receiver->receiver->isListening())
        __builtin_trap();
    return 0;
}
