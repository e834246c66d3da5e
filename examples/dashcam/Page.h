#pragma once

#include <string>

#include "examples/dashcam/Folder.h"

namespace Dashcam {

/// Makes the page that shows all events of a folder, the newest first, from their side files.
///
/// Plain HTML without scripts: it needs no server, and nothing from the network.
/// @return the page.
std::string MakePage(const Folder& folder);

}  // namespace Dashcam
