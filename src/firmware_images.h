/**
 * @file firmware_images.h
 * @brief The 8051 programs of the boards, byte for byte as they are downloaded.
 *
 * The build includes them from the files that it was given (MARVANE_FIRMWARE_DIR), or else
 * stand-ins of the same sizes that do nothing; cmake/MarvaneFirmware.cmake says more.
 */
#ifndef FIRMWARE_IMAGES_H
#define FIRMWARE_IMAGES_H

extern const unsigned char Memory8051[15888];      // K40
extern const unsigned char K44_Memory8051[14002];  // K44
extern const unsigned char K50_Memory8051[14172];  // K50

#endif  // FIRMWARE_IMAGES_H
