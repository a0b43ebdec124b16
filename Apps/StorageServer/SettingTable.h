#pragma once

#include "EngineName.h"
#include "Setting.h"

#include <vector>

namespace Brantel::Server {

// Everything that an operator can choose, in the order in which it is shown. `engines`: at least
// one.
class SettingTable {
  public:
    struct Section {
        std::string title;
        std::vector<Setting> settings;
    };

    static std::vector<Section> Sections(const std::vector<EngineName>& engines);
    // The settings of all sections.
    static std::vector<Setting> All(const std::vector<EngineName>& engines);
};

}  // namespace Brantel::Server
