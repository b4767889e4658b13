#include "tests/speech/HubServer.h"

#include <fstream>
#include <iterator>

#include <httplib.h>
#include <nlohmann/json.hpp>

namespace speech::testing {
namespace fs = std::filesystem;

namespace {

std::string readAll(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

HubServer::HubServer(fs::path root)
    : root_(std::move(root)), server_(std::make_unique<httplib::Server>()) {
    auto record = [this](const httplib::Request& request) {
        std::lock_guard lock(mutex_);
        requests_.push_back(
            {request.path, request.has_header("Authorization")
                               ? std::optional(request.get_header_value("Authorization"))
                               : std::nullopt});
    };

    // /api/models/<owner>/<name>/tree/main[/<path>]
    server_->Get(R"(/api/models/([^/]+/[^/]+)/tree/main(/.*)?)",
                 [this, record](const httplib::Request& request, httplib::Response& response) {
                     record(request);
                     fs::path repo = root_ / request.matches[1].str();
                     std::string sub = request.matches[2];
                     std::lock_guard lock(mutex_);
                     if (faults_.listing) {
                         response.status = faults_.listing->first;
                         response.set_content(faults_.listing->second, "text/html");
                         return;
                     }
                     fs::path folder = repo / sub.substr(sub.empty() ? 0 : 1);
                     if (!fs::is_directory(folder)) {
                         response.status = 404;
                         return;
                     }
                     auto listing = nlohmann::json::array();
                     std::vector<fs::path> children(fs::directory_iterator(folder), {});
                     std::sort(children.begin(), children.end());
                     for (const auto& child : children) {
                         bool directory = fs::is_directory(child);
                         listing.push_back({{"type", directory ? "directory" : "file"},
                                            {"path", fs::relative(child, repo).generic_string()},
                                            {"size", directory ? 0 : fs::file_size(child)},
                                            {"oid", "0000"}});
                     }
                     response.set_content(listing.dump(), "application/json");
                 });

    // /<owner>/<name>/resolve/main/<path>
    server_->Get(
        R"(/([^/]+/[^/]+)/resolve/main/(.+))",
        [this, record](const httplib::Request& request, httplib::Response& response) {
            record(request);
            std::string repo = request.matches[1];
            std::string path = request.matches[2];
            std::lock_guard lock(mutex_);
            if (auto status = faults_.fileStatus.find(path); status != faults_.fileStatus.end()) {
                response.status = status->second;
                response.set_content("failure", "text/plain");
                return;
            }
            fs::path file = root_ / repo / path;
            if (!fs::is_regular_file(file)) {
                response.status = 404;
                return;
            }
            auto body = std::make_shared<std::string>(readAll(file));
            if (auto cut = faults_.cut.find(path); cut != faults_.cut.end()) {
                std::size_t sent = std::min(cut->second.first, body->size());
                if (cut->second.second) {
                    response.set_content_provider(
                        body->size(), "application/octet-stream",
                        [body, sent](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                            if (offset < sent) sink.write(body->data() + offset, sent - offset);
                            return offset < sent;  // false drops the connection mid-body
                        });
                    return;
                }
                body->resize(sent);
            }
            response.set_content(*body, "application/octet-stream");
        });

    port_ = server_->bind_to_any_port("127.0.0.1");
    // The socket already listens, so clients may connect before the accept loop starts.
    thread_ = std::thread([this] {
        server_->listen_after_bind();
        stopped_ = true;
    });
}

HubServer::~HubServer() {
    // stop() only works on a running loop: let the thread get there first.
    while (!server_->is_running() && !stopped_) std::this_thread::yield();
    server_->stop();
    if (thread_.joinable()) thread_.join();
}

void HubServer::answerListings(int status, std::string body) {
    std::lock_guard lock(mutex_);
    faults_.listing = std::make_pair(status, std::move(body));
}
void HubServer::failFile(const std::string& path, int status) {
    std::lock_guard lock(mutex_);
    faults_.fileStatus[path] = status;
}
void HubServer::cutFile(const std::string& path, std::size_t bytes, bool dropConnection) {
    std::lock_guard lock(mutex_);
    faults_.cut[path] = {bytes, dropConnection};
}
void HubServer::clearFaults() {
    std::lock_guard lock(mutex_);
    faults_ = {};
}

std::vector<HubServer::Request> HubServer::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

std::size_t HubServer::fileRequests() const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count_if(
        requests_.begin(), requests_.end(),
        [](const Request& r) { return r.path.find("/resolve/main/") != std::string::npos; }));
}

void HubServer::clearRequests() {
    std::lock_guard lock(mutex_);
    requests_.clear();
}

}  // namespace speech::testing
