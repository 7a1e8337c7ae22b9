#include <fcntl.h>
#include <unistd.h>

#include "base/camera_paths.h"
#include "base/unique_fd.h"
#include "config/config_params.h"
#include "desktop/parameters/parameter_store.h"
#include "this_build.h"
#include "topics.h"

namespace {

std::string folder() {
    return cameraPath("/tmp");
}

/** Every parameter of the application set once, as saving the settings does. */
void benchSaveAll(benchmark::State& state) {
    desktop::ParameterStore store(folder() + "/parameters.db",
                                  desktop::readManifestDefaults(this_build::checkout() / "package/manifest.json"));
    int value = 0;
    for (auto _ : state) {
        ++value;
        for (const ParameterDeclaration& parameter : parameterTable()) {
            store.set(parameter.name, std::to_string(value));
        }
    }
}

void benchDiskSync(benchmark::State& state) {
    const UniqueFd file(open((folder() + "/sync").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(file.get(), "4096", 4));
        fdatasync(file.get());
    }
}

}  // namespace

std::vector<Limit> registerStore() {
    benchmark::RegisterBenchmark("saving all settings/one disk sync", benchDiskSync);
    benchmark::RegisterBenchmark("saving all settings/ours", benchSaveAll);
    // No more than 50 ms on top of a sync; it waits for none, so the bound is on the whole.
    return {{"saving all settings", "one disk sync", "", std::nullopt}, {"saving all settings", "ours", "", 50000.0}};
}
