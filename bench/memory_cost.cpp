/**
 * @file memory_cost.cpp
 * @brief What long transfers cost: 64 KB of SRAM and the firmware download, at both speeds.
 *
 * Counts the exchanges, which must be the least that the chunk sizes allow, and compares the time
 * with as many bare exchanges of the largest chunk, and the copying of the bytes.
 */
#include <cstring>

#include "bare_exchange.h"
#include "comparison.h"
#include "constant_driver.h"
#include "marvaneusb.h"

namespace {

struct Transfer {
    const char* name;
    int deviceNo;
    unsigned char command;
    unsigned long bytes;
    unsigned long header;  // bytes before the data in a payload, or the whole payload of a read
    unsigned long chunk;
    unsigned long exchanges;
    bool isRead;
    double ownNsPerExchange;
    bool (*run)(MarvaneUSB& board, unsigned char* data);
};

bool Write(MarvaneUSB& board, unsigned char* data) {
    return board.WriteLargeSRAM(0, data, 65535) != 0;
}

bool Read(MarvaneUSB& board, unsigned char* data) {
    return board.ReadLargeSRAM(0, data, 65535) != 0;
}

bool Download(MarvaneUSB& board, unsigned char* /*data*/) {
    constant_driver::SetFirmwareRunning(false);
    const bool done = board.DownloadHiCode() != 0;
    constant_driver::SetFirmwareRunning(true);
    return done;
}

// Even devices of a model are fast, odd ones slow: see constant_driver.h.
constexpr int Slow(int deviceNo) {
    return deviceNo + 3;
}

// clang-format off
// 65535 bytes, the most that every model takes. Pages cut a K44's transfers at 16384.
const Transfer kTransfers[] = {
    //name                  device            code  bytes  head chunk  count  read   own  run
    {"K40 write fast",      kK40Device,         71, 65535,   3,   249,   264, false,  25, Write},
    {"K40 write slow",      Slow(kK40Device),   71, 65535,   3,    57,  1150, false,  25, Write},
    {"K40 read fast",       kK40Device,         70, 65535,   3,    58,  1130, true,   25, Read},
    {"K44 write fast",      kK44Device,        117, 65535,   5,   247,   268, false,  15, Write},
    {"K44 write slow",      Slow(kK44Device),  117, 65535,   5,    55,  1192, false,  15, Write},
    {"K44 read fast",       kK44Device,        116, 65535,   5,   252,   264, true,   15, Read},
    {"K44 read slow",       Slow(kK44Device),  116, 65535,   5,    60,  1096, true,   15, Read},
    {"K40 firmware fast",   kK40Device,         71, 15888,   3,   249,    67, false,  25, Download},
    {"K40 firmware slow",   Slow(kK40Device),   71, 15888,   3,    57,   282, false,  25, Download},
    {"K44 firmware fast",   kK44Device,        117, 14002,   5,   247,    60, false,  15, Download},
    {"K44 firmware slow",   Slow(kK44Device),  117, 14002,   5,    55,   258, false,  15, Download},
    {"K50 firmware fast",   kK50Device,        117, 14172,   5,   247,    61, false,  15, Download},
    {"K50 firmware slow",   Slow(kK50Device),  117, 14172,   5,    55,   261, false,  15, Download},
};
// clang-format on

unsigned char memory[65536];

void RunBare(benchmark::State& state, const Transfer& transfer) {
    std::vector<unsigned char> payload(transfer.header + (transfer.isRead ? 0 : transfer.chunk));
    payload[0] = static_cast<unsigned char>(transfer.chunk);
    BareExchange exchange(transfer.deviceNo, transfer.command, payload);
    unsigned char target[256];
    for (auto _ : state) {
        for (unsigned long i = 0; i < transfer.exchanges; ++i) {
            benchmark::DoNotOptimize(exchange.Run());
            std::memcpy(target, memory + i, transfer.chunk);
            benchmark::DoNotOptimize(target);
        }
    }
}

void RunTransfer(benchmark::State& state, const Transfer& transfer) {
    MarvaneUSB board;
    if (!board.InitPort(transfer.deviceNo)) state.SkipWithError("no board");
    const unsigned long before = constant_driver::Exchanges();
    if (!transfer.run(board, memory)) state.SkipWithError("the transfer failed");
    if (constant_driver::Exchanges() - before != transfer.exchanges) {
        std::fprintf(stderr, "%s: %lu exchanges\n", transfer.name,
                     constant_driver::Exchanges() - before);
        state.SkipWithError("not the least number of exchanges");
    }
    for (auto _ : state) {
        if (!transfer.run(board, memory)) state.SkipWithError("the transfer failed");
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<Comparison> comparisons;
    for (const Transfer& transfer : kTransfers) {
        const std::string name = transfer.name;
        benchmark::RegisterBenchmark((name + " bare").c_str(), RunBare, transfer);
        benchmark::RegisterBenchmark(name.c_str(), RunTransfer, transfer);
        comparisons.push_back(
            {name, transfer.ownNsPerExchange * static_cast<double>(transfer.exchanges)});
    }
    return RunComparisons(argc, argv, comparisons);
}
