// Takes the page's place in a build without node.

#include "report/Page.h"

namespace zebcam::tool::report {

ReportPage const* reportPage() {
    return nullptr;
}

}  // namespace zebcam::tool::report
