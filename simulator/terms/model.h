// The board models, and what they are called.
#ifndef MARVANE_SIMULATOR_TERMS_MODEL_H
#define MARVANE_SIMULATOR_TERMS_MODEL_H

#include <array>
#include <string>

namespace simulator {

enum class Model { kK40 = 1, kK44 = 2, kK50 = 3 };

inline constexpr std::array kModels = {Model::kK40, Model::kK44, Model::kK50};

/// As people write it: "K40".
std::string ModelName(Model model);

/// As the command line and the state write it: "k40".
std::string ModelWord(Model model);

/// What the board says of itself on the bus: "Marvane K40 Board".
std::string ProductOf(Model model);

}  // namespace simulator

#endif
