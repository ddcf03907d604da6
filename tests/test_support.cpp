#include "test_support.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace zelva_test {

bool InCi() {
    const char* ci = getenv("CI");
    return ci != nullptr && strcmp(ci, "true") == 0;
}

sandbox::Outcome RunInDevice(const sandbox::DeviceTree& tree, const sandbox::Function& fn,
                             sandbox::Options options) {
    return sandbox::Run(tree, options, fn);
}

sandbox::Outcome RunInDevice(const sandbox::ScratchRoot& root, const sandbox::Function& fn,
                             sandbox::Options options) {
    return sandbox::Run(root, options, fn);
}

std::vector<PropertyMap> BatchesOfKind(const sandbox::Outcome& outcome, int kind) {
    std::vector<PropertyMap> batches;
    for (const sandbox::Batch& batch : outcome.batches) {
        if (batch.kind == kind) batches.push_back(batch.props);
    }
    return batches;
}

std::vector<int> Kinds(const sandbox::Outcome& outcome) {
    std::vector<int> kinds;
    for (const sandbox::Batch& batch : outcome.batches) kinds.push_back(batch.kind);
    return kinds;
}

std::string LibraryPath() {
    return ZELVA_LIBRARY_PATH;
}

std::string ExamplesDir() {
    return ZELVA_EXAMPLES_DIR;
}

}  // namespace zelva_test
