// Writes what is to be seen of serial ports; docs/simulator.md tells users what every field means.
#include "device_report_serial.h"

#include "hex.h"

namespace simulator {
namespace {

using Json = nlohmann::ordered_json;

Json SettingOf(const BoardSerialPort& port) {
    const auto& setting = port.Setting();
    if (!setting) return nullptr;
    return {
        {"type", setting->type},
        {"parityCode", setting->parityCode},
        {"flagBits2And3", setting->flagBits2And3},
        {"flagBit1", setting->flagBit1},
        {"rate", Hex(setting->rate)},
    };
}

Json PortAsJson(const BoardSerialPort& port) {
    return {
        {"line", NameOfLine(port.Line())},  {"configuration", SettingOf(port)},
        {"received", port.ReceivedWords()}, {"sent", port.SentWords()},
        {"dropped", port.DroppedWords()},   {"parityErrors", port.ParityErrors()},
    };
}

}  // namespace

Json SerialPortsOf(const Board& board) {
    Json ports = Json::array();
    for (const BoardSerialPort& port : board.ports)
        ports.push_back(PortAsJson(port));
    return ports;
}

}  // namespace simulator
