#pragma once

#include "diskservice/source/device_text.h"

#include <iostream>
#include <set>
#include <string>
#include <utility>

/// What a look at the devices has to tell people: a line on standard error for each notice,
/// once for as long as every look has it. A notice begins with the device's file.
class Notices {
public:
    void add(const std::string& notice) { current_.insert(notice); }
    [[nodiscard]] std::size_t count() const { return current_.size(); }

    /// Ends one look: tells what the one before did not have.
    void tell()
    {
        for (const std::string& notice : current_) {
            if (!told_.contains(notice)) {
                std::cerr << "diskservice: " << printable_text(notice).toStdString() << std::endl;
            }
        }
        told_ = std::exchange(current_, {});
    }

private:
    std::set<std::string> current_;
    std::set<std::string> told_;
};
