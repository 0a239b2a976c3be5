/**
 * @file kbase_implementation_recording.cpp
 * @brief Input recording, and diagnostic data that the library carries without looking at them.
 */
#include "kbase_implementation.h"

int KBaseImplementation::ConfigureRecordingInputs(_usbInputBitId* inputs, unsigned long address,
                                                  unsigned short areaLength) {
    if (inputs == nullptr) return Fail(USB_ERR_NULL_POINTER);

    // Each slot is read once: what is checked is what is sent.
    Payload payload;
    bool recordsAny = false;
    for (unsigned slot = 0; slot < kRecordingSlotCount; ++slot) {
        const _usbInputBitId input = inputs[slot];
        if (input != USB_INPUT_NONE) {
            if (input >= kCountedInputCount) return Fail(USB_ERR_OUT_OF_RANGE);
            recordsAny = true;
        }
        payload.Byte(input);
    }
    if (!recordsAny) return Fail(USB_ERR_OUT_OF_RANGE);
    if (address > kRecordingLimit || areaLength > kRecordingLimit - address) {
        return Fail(USB_ERR_OUT_OF_RANGE);
    }

    return Exchange(commands::kConfigureRecording,
                    payload.Byte(kFirstStoragePage + address / kMemoryPageSize)
                        .HighFirst(static_cast<unsigned short>(address % kMemoryPageSize))
                        .HighFirst(areaLength));
}

int KBaseImplementation::StartRecordingInputs(unsigned short recordingParameter) {
    if (recordingParameter < kShortestRecordingParameter ||
        recordingParameter > kLongestRecordingParameter) {
        return Fail(USB_ERR_OUT_OF_RANGE);
    }
    return Exchange(commands::kStartRecording, Payload().HighFirst(recordingParameter));
}

int KBaseImplementation::GetRecordingStatus(RecordingStatus* status, unsigned short* firstValue,
                                            unsigned short* secondValue) {
    if (status == nullptr || firstValue == nullptr || secondValue == nullptr) {
        return Fail(USB_ERR_NULL_POINTER);
    }

    Reply reply;
    if (!Exchange(commands::kRecordingStatus, reply)) return 0;

    *status = static_cast<RecordingStatus>(reply.Byte(0));
    *firstValue = reply.HighFirst(1);
    *secondValue = reply.HighFirst(3);
    return 1;
}

int KBaseImplementation::ReadDiagnosticData(unsigned char* request, unsigned long requestLength,
                                            unsigned char* reply, unsigned long* replyLength) {
    if (reply == nullptr || request == nullptr || replyLength == nullptr) {
        return Fail(USB_ERR_NULL_POINTER);
    }

    CopiedReply answer = CopiedReply::OfAnyLength();
    if (!ExchangeBytes(commands::kReadDiagnosticData, request, requestLength, answer)) return 0;

    *replyLength = answer.CopyTo(reply, Reply::kRoom);
    return 1;
}

int KBaseImplementation::WriteDiagnosticData(unsigned char* diagnosticData,
                                             unsigned long dataLength) {
    if (diagnosticData == nullptr) return Fail(USB_ERR_NULL_POINTER);

    Reply ignored;
    return ExchangeBytes(commands::kWriteDiagnosticData, diagnosticData, dataLength, ignored);
}
