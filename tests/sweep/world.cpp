// SPDX-License-Identifier: Apache-2.0
// What a scenario runs in: a simulated board, contexts on it, and room for what a call stores.
#include "world.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/bytes.h"

namespace sweep {

World::~World() {
    sim::Board::use(nullptr);
    if (!path_.empty()) {
        std::remove(path_.c_str());
    }
}

void World::open(const std::string& text) {
    sim::BoardError error;
    board = sim::Board::parse(text, error);
    if (board == nullptr) {
        std::fprintf(stderr, "%s\n%s\n", error.message("board").c_str(), text.c_str());
        std::exit(1);
    }
    sim::Board::use(board.get());
}

mctp_ctx World::context_of(const std::string& name) const {
    mctp_ctx ctx{};
    for (const sim::EndpointInfo& info : board->endpoints()) {
        if (info.name == name) {
            ctx.src_eid = 8;
            ctx.binding_kind = info.binding_kind;
            ctx.bus = info.bus;
            ctx.slave_addr = info.address;
            std::copy(info.mux.begin(), info.mux.end(), ctx.mux);
            std::copy(info.bdf.begin(), info.bdf.end(), ctx.pcie_bdf);
            return ctx;
        }
    }
    std::fprintf(stderr, "no device %s\n", name.c_str());
    std::exit(1);
}

const char* World::file(const std::vector<uint8_t>& bytes) {
    if (!path_.empty()) {
        std::remove(path_.c_str());
    }
    path_ = (std::filesystem::temp_directory_path() / "sweep-file-XXXXXX").string();
    const int made = mkstemp(path_.data());
    if (made < 0) {
        std::perror("mkstemp");
        std::exit(1);
    }
    close(made);
    std::ofstream(path_, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return path_.c_str();
}

std::string board_of(const std::string& devices, const std::string& keys) {
    return R"({"name": "sweep", "buses": [{"bus": 2, "clock_hz": 400000,
                "muxes": [{"address": "0xe0", "channels": 2}]}], )" +
           keys + R"("devices": [)" + devices + "]}";
}

void open_device(World& world, const std::string& device, const std::string& keys) {
    world.open(board_of(device, keys));
    world.endpoint = world.context_of("dev");
}

void ready_device(World& world, const std::string& device, const std::string& keys) {
    open_device(world, device, keys);
    world.endpoint.dest_eid = 9;
    world.endpoint.skip_discovery = 1;
    mctp_init2(&world.endpoint);
}

void ready_terminus(World& world, const std::string& device) {
    ready_device(world, device);
    mctp_pldm_register(&world.endpoint, &world.pldm);
}

std::string shown(const void* bytes, size_t size) {
    return test::to_hex({static_cast<const uint8_t*>(bytes), size});
}

test::SocketPatch*& sockets() {
    static test::SocketPatch* current = nullptr;
    return current;
}

}  // namespace sweep
