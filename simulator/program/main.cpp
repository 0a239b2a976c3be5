// marvane-sim: simulated boards for applications that are not changed for it.
#include <string_view>

#include "program/attach.h"
#include "program/command_line.h"
#include "program/run.h"

namespace {

template <class Arguments, class Act>
int Perform(const simulator::Parsed<Arguments>& parsed, Act act) {
    return parsed.arguments ? act(*parsed.arguments) : parsed.exitStatus;
}

}  // namespace

int main(int count, char** values) {
    const std::string_view form = count > 1 ? values[1] : "";
    if (form == "ctl") {
        return Perform(simulator::ParseControl(count - 1, values + 1), simulator::Control);
    }
    if (form == "join") {
        return Perform(simulator::ParseJoin(count - 1, values + 1), simulator::Join);
    }
    return Perform(simulator::ParseRun(count, values),
                   [&](const auto& arguments) { return simulator::Run(arguments, values); });
}
