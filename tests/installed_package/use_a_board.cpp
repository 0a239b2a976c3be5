#include <marvaneusb_testing.h>
// The order must not matter.
#include <marvaneusb.h>

int UseABoard() {
    using namespace marvaneusb::testing;
    Boards boards;
    Board cabinet = boards.AddBoard(0, Model::kK50);
    cabinet.SetInput(5, true);
    MarvaneUSB board;
    unsigned int pressed = 0;
    if (!board.init(0) || !board.GetInputBit(USB_INPUT_5, &pressed) || pressed != 1) return 1;
    return board.SetOutputBit(USB_OUTPUT_12, 1) && cabinet.Output(12) == OutputState::kOn ? 0 : 1;
}
