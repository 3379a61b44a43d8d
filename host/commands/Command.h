#pragma once

#include <CLI/App.hpp>
#include <functional>
#include <stdexcept>

namespace KIVO::Host {

/// A subcommand of the program, and what it does: its exit status.
struct Command {
    const CLI::App* subcommand;
    std::function<int()> run;
};

/// A command line that asks for what cannot be. What() is one sentence.
class WrongUse : public std::runtime_error {
public:
    using runtime_error::runtime_error;
};

}  // namespace KIVO::Host
