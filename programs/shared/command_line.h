// Small steps in the declaration of a subcommand with CLI11.
#pragma once

#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "program.h"

namespace quillfence::programs {

// Stores what a subcommand does when it is the one that was asked for.
template <class Arguments>
void on_choice(CLI::App *command, chosen_action &chosen, std::shared_ptr<Arguments> arguments,
               exit_status (*action)(const Arguments &, std::ostream &)) {
    command->callback([&chosen, arguments, action] {
        chosen = [arguments, action] { return action(*arguments, std::cout); };
    });
}

} // namespace quillfence::programs
