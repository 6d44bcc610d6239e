#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "client/Endpoint.h"
#include "web/Assets.h"
#include "web/Control.h"
#include "web/DriveOffs.h"
#include "web/EventStream.h"
#include "web/Guard.h"
#include "web/HttpServer.h"
#include "web/LogFeed.h"
#include "web/PageCommand.h"
#include "web/PageSettings.h"
#include "web/Poller.h"
#include "web/RateLimit.h"
#include "web/Statistics.h"
#include "web/TransferProgress.h"
#include "web/Worker.h"

namespace tavrik {

struct SiteOptions {
    Endpoint daemon;
    std::vector<std::string> origins;  ///< under which the page is served
    std::string assets;                ///< folder with the page's files
    std::string log;                   ///< file with the daemon's log; empty for the journal
    bool allowControl = false;
};

/// Everything that is served: the page, its events, what it asks for, and the metrics.
class Site : public HttpHandler {
public:
    /// @throws Failure (Usage, Failed) for an origin or file that cannot be used
    explicit Site(const SiteOptions& options);

    std::optional<HttpResponse> Refuse(const HttpRequest& head) override;
    void Handle(const HttpRequest& request, Reply reply) override;

    /// The code for control; empty if control is not allowed.
    std::string Code() const { return control.IsAllowed() ? control.Code() : ""; }

private:
    using Action = void (Site::*)(const HttpRequest& request, const nlohmann::json& body,
                                  const Reply& reply);

    /// Who has asked for a command.
    struct Sender {
        std::string peer;
        std::string token;
    };

    HttpResponse Get(const HttpRequest& request);
    void Post(const HttpRequest& request, const Reply& reply);

    // What the page asks for.
    void TakeControl(const HttpRequest& request, const nlohmann::json& body, const Reply& reply);
    void KeepControl(const HttpRequest& request, const nlohmann::json& body, const Reply& reply);
    void ReleaseControl(const HttpRequest& request, const nlohmann::json& body, const Reply& reply);
    void RunCommand(const HttpRequest& request, const nlohmann::json& body, const Reply& reply);
    void ReadSettings(const HttpRequest& request, const nlohmann::json& body, const Reply& reply);
    void CompareSettings(const HttpRequest& request, const nlohmann::json& body,
                         const Reply& reply);
    void RestoreSettings(const HttpRequest& request, const nlohmann::json& body,
                         const Reply& reply);
    void ReadLog(const HttpRequest& request, const nlohmann::json& body, const Reply& reply);
    void Diagnose(const HttpRequest& request, const nlohmann::json& body, const Reply& reply);

    void DoForGripper(
        const nlohmann::json& body, const Reply& reply,
        std::function<nlohmann::ordered_json(const Gripper&, const PageProgress&)> job);
    CommandResult Execute(const PageCommand& command, const Sender& sender, Daemon& daemon,
                          const std::stop_token& dropped);
    CommandResult Call(const PageCommand& command, const Gripper& gripper);
    int Send(const PageCommand& command, const Gripper& gripper);
    void RequireControl(const Sender& sender);
    bool HasControl(const HttpRequest& request);
    EventText CellEvent(const Cell& cell);
    void Publish(const Cell& cell, bool isNew);

    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    const Endpoint daemon;
    const Guard guard;
    const Assets assets;
    Control control;
    Statistics statistics;
    RateLimit streamLimit;
    RateLimit metricsLimit;
    RateLimit requestLimit;
    RateLimit logLimit;
    RateLimit refusalLimit;
    TransferProgress transfer;
    EventHub hub;
    std::atomic<std::uint64_t> generation = 0;  // of the list of grippers
    std::atomic<bool> hasNewViewer = false;     // one that has no event yet
    std::string lastControl;                    // the poller's thread alone, like the next one
    std::chrono::steady_clock::time_point nextCellEvent{};
    Poller poller;
    DriveOffs driveOffs;  // so that none waits for a motion, or for another silent master
    Worker motions;       // short, so that no motion waits for the others
    Worker readings;      // settings and the doctor
    LogFeed log;
};

}  // namespace tavrik
