// Stores the running kernel's answers to the dumps of the kernel feed as files of a folder: see
// tests/data/netlink/README.md. usage: record_netlink FOLDER
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <string>

#include "devhost/feed/netlink.h"

namespace {

std::vector<std::byte> store(feed::NetlinkSocket& kernel, uint16_t type, uint32_t ifIndex, const std::string& file) {
    std::vector<std::byte> answer = kernel.dump(type, ifIndex);
    std::ofstream stream(file, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(answer.data()), static_cast<std::streamsize>(answer.size()));
    if (!stream.flush()) {
        throw std::runtime_error("cannot write " + file);
    }
    return answer;
}

void record(const std::string& folder) {
    feed::NetlinkSocket kernel;
    store(kernel, RTM_GETLINK, 0, folder + "/links.bin");
    for (const feed::TcObject& discipline :
         feed::parseDisciplines(store(kernel, RTM_GETQDISC, 0, folder + "/disciplines.bin")).entries) {
        if (discipline.parent == TC_H_ROOT) {
            const std::string file = folder + "/classes-" + std::to_string(discipline.ifIndex) + ".bin";
            store(kernel, RTM_GETTCLASS, discipline.ifIndex, file);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    try {
        record(argv[1]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return 1;
    }
}
