#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace oru {

struct IniEntry {
    int line = 0;
    std::string section;  ///< lower case, inner blanks single
    std::string key;      ///< lower case
    std::string value;
};

/// Splits INI text into its entries with their line numbers, which messages need. Comments are lines that begin with
/// ; or #, and what follows a blank and a ; on a line. An entry before the first section has an empty section. False
/// with a sentence that names the line when the text is no INI text.
[[nodiscard]] bool parseIni(std::string_view text, std::vector<IniEntry>& entries, std::string& error);

// Values as they stand in a file, in the C locale whatever the process's; false when the whole text is not one.
[[nodiscard]] bool toNumber(std::string_view text, double& number);
[[nodiscard]] bool toSwitch(std::string_view text, bool& on);  ///< on, yes, true, 1; off, no, false, 0

}  // namespace oru
