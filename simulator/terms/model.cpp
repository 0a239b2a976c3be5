// Makes the three texts of a model from its number.
#include "terms/model.h"

namespace simulator {
namespace {

std::string NumberOf(Model model) {
    constexpr std::array numbers = {"40", "44", "50"};
    return numbers[static_cast<std::size_t>(model) - 1];
}

}  // namespace

std::string ModelName(Model model) {
    return "K" + NumberOf(model);
}

std::string ModelWord(Model model) {
    return "k" + NumberOf(model);
}

std::string ProductOf(Model model) {
    return "Marvane " + ModelName(model) + " Board";
}

}  // namespace simulator
