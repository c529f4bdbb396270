// The page's own sources, embedded at build time from the folder page/.
#pragma once

#include <string_view>

extern const std::string_view REPORT_PAGE_STYLE;
extern const std::string_view REPORT_PAGE_SCRIPT;
extern const std::string_view REPORT_PAGE_BODY;
