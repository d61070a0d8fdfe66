#pragma once
// The string table "Localized" shipped in the resources: about texts and the
// addresses of our web pages.

#include <string>

namespace pv {

// The text stored under key; the key itself when the table lacks it.
std::string localizedString(const std::string& key);

}  // namespace pv
