/**
 * @file constant_driver.h
 * @brief The least that can stand where the kernel driver would.
 *
 * Device n is a K40, K44 or K50 in turn, three at 480 and three at 12 Mbit/s in turn. Every
 * exchange is accepted; a memory read is answered with as many bytes as it asks for, all else with
 * the same five bytes. Nothing is recorded and no lock is taken, so that what is measured is the
 * library and not its stand-in.
 */
#ifndef CONSTANT_DRIVER_H
#define CONSTANT_DRIVER_H

namespace constant_driver {

/** What the firmware status is answered with; at first it runs. */
void SetFirmwareRunning(bool running);

/** Exchanges since the program started. */
unsigned long Exchanges();

}  // namespace constant_driver

#endif  // CONSTANT_DRIVER_H
