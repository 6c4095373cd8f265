// A stand-in for the phone application in cross-process tests: started by a launch command,
// it listens in a container and appends each dictionary it receives, as one line of JSON, to
// a file, until it has received the number asked for.
//
// Usage: vexo_parent_application_receiver_helper <container> <output file> <count>
// Exits 0 when all arrived, 1 when they did not within a minute, 2 when it cannot listen.

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include "platform/ipc/ParentApplicationReceiver.h"
#include "platform/plist/Json.h"
#include "platform/runtime/AsioRunLoop.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: " << argv[0] << " <container> <output file> <count>\n";
        return 2;
    }
    const std::string output = argv[2];
    const long expected = std::strtol(argv[3], nullptr, 10);
    // A test that failed never tells us to stop; we leave by ourselves.
    constexpr double kLifetime = 60;

    vexo::runtime::AsioRunLoop loop;
    long received = 0;
    vexo::ipc::ParentApplicationReceiver receiver(argv[1], loop, [&](const vexo::plist::Value& dictionary) {
        std::ofstream(output, std::ios::app) << vexo::plist::json::toJson(dictionary).dump() << std::endl;
        ++received;
    });
    if (!receiver.isListening())
        return 2;
    return loop.runUntil([&] { return received >= expected; }, kLifetime) ? 0 : 1;
}
