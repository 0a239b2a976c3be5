// The two records that applications pass to ioctl, read from and written to a client's memory.
#ifndef MARVANE_SIMULATOR_DRIVER_TRANSFER_H
#define MARVANE_SIMULATOR_DRIVER_TRANSFER_H

#include <umockdev.h>

#include "driver/device.h"
#include "driver/g_owned.h"

namespace simulator {

/// One request of a client.
struct Transfer {
    std::uint8_t command = 0;
    std::uint32_t channel = 0;
    std::vector<std::uint8_t> payload;
    GOwned<UMockdevIoctlData> record;  // in the client's memory; null where there is none
};

/// Reads what the client passed. Result: an error number, 0 for none; ENOTTY where the model's
/// driver has no such request. Of a record that is refused it fills in what can be read.
int ReadTransfer(Model model, UMockdevIoctlClient* client, Transfer& transfer);

/// Gives the client its answer; not for outcomes with an error. Result: an error number, 0 for
/// none.
int WriteAnswer(Model model, const Transfer& transfer, const Outcome& outcome);

}  // namespace simulator

#endif
