// What the outside may see of a device: its state as JSON, its log as lines.
#ifndef MARVANE_SIMULATOR_REPORT_DEVICE_H
#define MARVANE_SIMULATOR_REPORT_DEVICE_H

#include <string>

#include "driver/device.h"

namespace simulator {

std::string StateAsJson(const Device& device);

/// One exchange in each line: channel, command, payload, result, reply.
std::string LogAsLines(const Device& device);

/// Number, model, speed and whether it is plugged in.
std::string SummaryLine(const Device& device);

}  // namespace simulator

#endif
