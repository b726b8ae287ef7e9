// The templates in a folder, as the device's template library reads them.
#ifndef TEMPLATE_CHECK_H
#define TEMPLATE_CHECK_H

#include "finding.h"

#include <filesystem>

// Adds to `findings` what TMPL_web_write says of each file in `folder` and the folders inside.
void checkTemplates(const std::filesystem::path& folder, Findings& findings);

#endif
