/**
 * @file operation_cost.cpp
 * @brief What an operation without a lock costs beyond its ioctl, on each model.
 *
 * Against the bare ioctl call with the same record and payload on the same stand-in.
 */
#include "bare_exchange.h"
#include "comparison.h"
#include "marvaneusb.h"

namespace {

struct BoardKind {
    const char* name;
    int deviceNo;
    double boundNs;
};
constexpr BoardKind kBoards[] = {
    {"K40", kK40Device, 25}, {"K44", kK44Device, 15}, {"K50", kK50Device, 15}};

struct Measured {
    const char* name;
    unsigned char command;
    std::vector<unsigned char> payload;
    int (*run)(MarvaneUSB& board);
};

const Measured kMeasured[] = {
    {"GetInputs",
     75,
     {},
     [](MarvaneUSB& board) {
         usbInput inputs;
         const int result = board.GetInputs(&inputs);
         benchmark::DoNotOptimize(inputs);
         return result;
     }},
    {"GetInputBit",
     75,
     {},
     [](MarvaneUSB& board) {
         unsigned int value = 0;
         const int result = board.GetInputBit(USB_INPUT_5, &value);
         benchmark::DoNotOptimize(value);
         return result;
     }},
    {"InputMultiplexing",
     114,
     {1},
     [](MarvaneUSB& board) { return board.InputMultiplexing(USB_INPUT_MULTIPLEXING_ON); }},
    {"GetReelStatus",
     92,
     {},
     [](MarvaneUSB& board) {
         usbReelStatus status;
         const int result = board.GetReelStatus(&status);
         benchmark::DoNotOptimize(status);
         return result;
     }},
};

void RunBare(benchmark::State& state, int deviceNo, const Measured& measured) {
    BareExchange exchange(deviceNo, measured.command, measured.payload);
    for (auto _ : state) {
        benchmark::DoNotOptimize(exchange.Run());
        benchmark::ClobberMemory();
    }
}

void RunOperation(benchmark::State& state, int deviceNo, const Measured& measured) {
    MarvaneUSB board;
    if (!board.InitPort(deviceNo)) state.SkipWithError("no board");
    for (auto _ : state) {
        if (!measured.run(board)) state.SkipWithError("the operation failed");
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<Comparison> comparisons;
    for (const BoardKind& kind : kBoards) {
        for (const Measured& measured : kMeasured) {
            const std::string name = std::string(kind.name) + " " + measured.name;
            benchmark::RegisterBenchmark((name + " bare").c_str(), RunBare, kind.deviceNo,
                                         measured);
            benchmark::RegisterBenchmark(name.c_str(), RunOperation, kind.deviceNo, measured);
            comparisons.push_back({name, kind.boundNs});
        }
    }
    return RunComparisons(argc, argv, comparisons);
}
