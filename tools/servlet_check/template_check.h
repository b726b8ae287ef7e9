// Checks templates with the device's own template library.
#ifndef TEMPLATE_CHECK_H
#define TEMPLATE_CHECK_H

#include "finding.h"

#include <filesystem>

// Checks each file in `folder` and its subfolders. Adds to `findings` each error that
// TMPL_web_write() reports.
void checkTemplates(const std::filesystem::path& folder, Findings& findings);

#endif
