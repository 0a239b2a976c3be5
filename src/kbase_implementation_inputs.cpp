/**
 * @file kbase_implementation_inputs.cpp
 * @brief Reading the inputs: every image is the board's reply, never kept, filtered or inverted.
 */
#include "kbase_implementation.h"

namespace {

int ReadInputImage(KBaseImplementation& board, Command command, usbInput* image) {
    if (image == nullptr) return Fail(USB_ERR_NULL_POINTER);

    Reply reply;
    if (!board.Exchange(command, reply)) return 0;

    reply.Decode(0, image->bytes);
    return 1;
}

}  // namespace

int KBaseImplementation::GetInputs(usbInput* inputs) {
    return ReadInputImage(*this, commands::kGetInputs, inputs);
}

int KBaseImplementation::GetRawInputs(usbInput* inputs) {
    return ReadInputImage(*this, commands::kGetRawInputs, inputs);
}

int KBaseImplementation::GetChangedInputs(usbInput* changed) {
    return ReadInputImage(*this, commands::kGetChangedInputs, changed);
}

int KBaseImplementation::GetInputs(unsigned char* inputs) {
    if (inputs == nullptr) return Fail(USB_ERR_NULL_POINTER);

    CopiedReply reply = CopiedReply::UpTo(sizeof(usbInput));
    if (!Exchange(commands::kGetInputs, reply)) return 0;

    reply.CopyTo(inputs, sizeof(usbInput));
    return 1;
}

int KBaseImplementation::GetInputBit(_usbInputBitId inputBit, unsigned int* value) {
    if (value == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (inputBit >= kInputCount) return Fail(USB_ERR_OUT_OF_RANGE);

    // Through the virtual byte form, so that a model that overrides it changes both.
    usbInput image{};
    if (!GetInputs(image.bytes)) return 0;

    *value = image.bytes[inputBit / 8] >> (inputBit % 8) & 1U;
    return 1;
}

int KBaseImplementation::InputMultiplexing(usbInputMultiplexing mode) {
    if (mode != USB_INPUT_MULTIPLEXING_OFF && mode != USB_INPUT_MULTIPLEXING_ON) {
        return Fail(USB_ERR_OUT_OF_RANGE);
    }
    return Exchange(commands::kSetMultiplexing, Payload().Byte(static_cast<unsigned>(mode)));
}

int KBaseImplementation::GetMultiplexedInputs(usbMultiplexedInput* inputs) {
    if (inputs == nullptr) return Fail(USB_ERR_NULL_POINTER);

    Reply reply;
    if (!Exchange(commands::kGetMultiplexed, reply)) return 0;

    inputs->leadByte = reply.Byte(0);
    for (unsigned group = 0; group < 4; ++group)
        reply.Decode(1 + group * 3, inputs->groups[group]);
    return 1;
}
