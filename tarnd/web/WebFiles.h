#pragma once

#include <string_view>

/// The files of this folder, as the build puts them into the program.
namespace tarnd::web {

extern const std::string_view appCss;  ///< what only the application has
extern const std::string_view appHtml; ///< the application
extern const std::string_view appJs;
extern const std::string_view baseCss; ///< the look of everything
extern const std::string_view iconSvg;
extern const std::string_view pageCss; ///< what only the pages of public links have

} // namespace tarnd::web
