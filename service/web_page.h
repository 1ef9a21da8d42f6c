// The station's web page, built into the program from web/index.html: no
// build step for it and nothing fetched from elsewhere when it runs.
#pragma once

#include <string>

namespace boxdim::service {

const std::string& web_page_html();

}  // namespace boxdim::service
