#include "CorvaneApp/models/WhisperCpuBackend.h"

#include <dlfcn.h>

#include <ggml-backend.h>

#include "CorvaneApp/models/WhisperLogRouting.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

// The shared object that holds `address`, as the dynamic loader knows it.
std::filesystem::path libraryHolding(const void* address) {
    Dl_info info{};
    if (!address || dladdr(address, &info) == 0 || !info.dli_fname) return {};
    return info.dli_fname;
}

std::filesystem::path load() {
    routeWhisperLogs();  // ggml says there which back-ends it tried and why it refused one
    const auto ggml =
        libraryHolding(reinterpret_cast<const void*>(&ggml_backend_load_all_from_path));
    if (!ggml.empty() && ggml.has_parent_path())
        ggml_backend_load_all_from_path(ggml.parent_path().c_str());
    if (!ggml_backend_dev_by_type(GGML_BACKEND_DEVICE_TYPE_CPU)) ggml_backend_load_all();

    const auto logger = log::get("WhisperHandler");
    ggml_backend_reg_t cpu = ggml_backend_reg_by_name("CPU");
    if (!cpu) {
        logger->error("no CPU back-end for whisper.cpp next to {}", ggml.string());
        return {};
    }
    auto file = libraryHolding(cpu);
    logger->info("whisper.cpp runs on the CPU back-end {}", file.filename().string());
    return file;
}

}  // namespace

const std::filesystem::path& loadWhisperCpuBackend() {
    static const std::filesystem::path file = load();
    return file;
}

}  // namespace corvane
