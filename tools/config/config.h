// A switch that is told what it is by a file: the batch language of tarnctl, said to the switch of
// this process, with no socket between.
#pragma once

#include "tarnctl/session.h"

#include <functional>
#include <memory>
#include <string>

namespace config {

// What a line "chip WORDS" does; empty where there is no chip. `ok` says whether the line was good.
using Chip = std::function<std::string(const std::string &line, bool &ok)>;

// What tarnctl works with, here: the family, the proc tree and the chip of this process.
class Own {
public:
    explicit Own(Chip chip = {});
    ~Own();
    tarnctl::Session session(std::function<void(const std::string &text)> print);

private:
    struct Ends;
    std::unique_ptr<Ends> ends_;
};

// Every line, until one fails; what a line leaves to a work item is done before the next. "" or
// "FILE:LINE: what was wrong". The module must have been loaded.
std::string apply(const std::string &file, const Chip &chip = {});

} // namespace config
