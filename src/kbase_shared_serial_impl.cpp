/**
 * @file kbase_shared_serial_impl.cpp
 * @brief The serial ports' shared object, and with it the process's first use of the arena.
 */
#include "kbase_shared_serial_impl.h"

#include "shared_order.h"

MARVANE_INIT_SERIAL_HANDLE SharedMemoryArenaID sharedSerialBlock = SharedArenaID();
MARVANE_INIT_SERIAL_HANDLE Shared<K40BUFFER[kDeviceCount]> SharedserialRxBuffer(sharedSerialBlock,
                                                                                "K40BUFFERS",
                                                                                kSerialLock);
