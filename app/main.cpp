#include "app/main.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>

#include "app/run_parameters.h"
#include "app/sdi_tap.h"
#include "app/service_tree.h"
#include "log/console_sink.h"
#include "log/i_logger.h"
#include "log/log_file_sink.h"
#include "log/log_perf.h"
#include "network/http_server/http_url.h"
#include "network/http_server_auth/auth_mgr_client.h"
#include "network/restful_web_service/abstract_object_web_service.h"
#include "pattern/pattern_loop.h"
#include "system/console/standard_error.h"
#include "system/file/file.h"
#include "system/ipc/object_access.h"
#include "system/ipc/process_claim.h"
#include "system/process/process.h"
#include "system/registry/registry.h"
#include "system/sdi/deltacast_io/device_api.h"
#include "system/sdi/simulated_board/device_choice.h"

namespace ovtx::app::sdi_tap::v1 {

std::atomic<SdiTap*> captureEngine{nullptr};
std::atomic<bool> keepRunning{true};

namespace {

namespace device = system::sdi::deltacast_io::v1;
using config::abstract_variable::lib_abstract_variable::v2::ObjectFactory;
using log::i_logger::v0::ILogger;
using network::restful_web_service::v3::AbstractObjectWebService;
using system::sdi::simulated_board::v1::deviceApiFromEnvironment;

constexpr const char* kRegistryKeys[] = {"SOFTWARE\\FirmwareAgent\\CurrentVersion\\",
                                         "SOFTWARE\\ORVANTA_VTX\\CurrentVersion\\"};
constexpr std::size_t kPathnameBufferSize = 255;
constexpr std::size_t kLogHistoryLimit = 50000;

std::uint32_t boardChannelCount(const device::BoardInfo& info) {
    if (!info.ApiAvailable || info.NbSdiBoard < 1 || !info.PropertiesValid) {
        return 0;
    }
    return static_cast<std::uint32_t>(std::max(0, info.NumRXchannels + info.NumTXchannels));
}

std::uint32_t boardChannelCount() {
    try {
        return boardChannelCount(device::getBoardReport(deviceApiFromEnvironment()));
    } catch (const device::DeltacastException&) {
        return 0;
    }
}

constexpr std::int32_t kWebHeapCapacity = 15;
constexpr std::size_t kWebWorkers = 32;

// The run's REST service over its tree, at the base address (SDI_TAP_HTTP_BASE_URL, by default
// every address on port 80) and "/sdi_tap/<port>". No state file: the tree only shows the run.
std::unique_ptr<AbstractObjectWebService> startWebService(ILogger& logger, const ObjectFactory& serviceTree,
                                                          const std::string& portName) {
    return std::make_unique<AbstractObjectWebService>(
        &logger, serviceTree, network::http_server::v3::httpBaseUrl(), "/sdi_tap/" + portName, "", false,
        network::http_server_auth::auth_mgr_client::v3::alwaysSuccessfulAuthMgr(), kWebHeapCapacity,
        kWebWorkers, false);
}

void runPatternPath(const RunParameters& parameters, const std::string& portName,
                    const device::BoardInfo& boardInfo, ILogger& logger) {
    const ObjectFactory serviceTree = buildServiceTree(nullptr, parameters.fourHdQuads, boardInfo);
    std::unique_ptr<AbstractObjectWebService> webService = startWebService(logger, serviceTree, portName);
    pattern::pattern_source::v1::PatternLoop(portName, parameters.videoFormat, parameters.use10Bit ? 10 : 8,
                                             parameters.audioSampling, logger, keepRunning);
}  // the service ends here, before the tree it serves

// The engine is deleted at process exit, not when its loop ends, so that its channels stay
// readable until then.
void deleteCaptureEngine() {
    delete captureEngine.exchange(nullptr);
}

// A run with a board found its port served by another run; claimPort has said so.
struct PortServedElsewhere {};

void runCapturePath(const RunParameters& parameters, const std::string& portName, device::DeviceApi& api,
                    const device::BoardInfo& boardInfo, ILogger& logger, system::ipc::v2::ProcessClaim& portClaim) {
    SdiTap::Environment environment{api, portName};
    // The port is claimed once its stream is open, so that a stream another process holds still
    // ends with exit code 100 where the board reports it, and before the engine touches the run's
    // channels, which belong to whichever run holds the claim.
    environment.streamOpened = [&portName, &portClaim] {
        if (!claimPort(portName, portClaim)) {
            throw PortServedElsewhere{};
        }
    };
    captureEngine.store(new SdiTap(parameters, logger, std::move(environment)));
    std::atexit(&deleteCaptureEngine);
    // A console stop that came while the engine was being built found no engine to reach.
    if (!keepRunning.load()) {
        captureEngine.load()->requestStop();
    }
    const ObjectFactory serviceTree = buildServiceTree(captureEngine.load(), parameters.fourHdQuads, boardInfo);
    std::unique_ptr<AbstractObjectWebService> webService = startWebService(logger, serviceTree, portName);
    captureEngine.load()->run();
}

// What the main routine's own guard covers: the board report, the choice of path and both paths.
void runGuardedRegion(const RunParameters& parameters, const std::string& portName, bool patternRequested,
                      ILogger& logger, system::ipc::v2::ProcessClaim& portClaim) {
    device::DeviceApi& api = deviceApiFromEnvironment();
    const device::BoardInfo boardInfo = device::getBoardReport(api);
    const bool boardPresent = boardInfo.ApiAvailable && boardInfo.NbSdiBoard >= 1;
    if (!boardPresent) {
        logger.Log(2, "API initialisation Failure");
    }
    if (patternRequested || !boardPresent) {
        if (!patternRequested) {
            if (parameters.print) {
                logger.Log(2, "API v%s  Board(s) %d", boardInfo.ApiVersion.c_str(), boardInfo.NbSdiBoard);
            }
            std::cerr << "SDI board not found, switched to pattern mode." << std::endl;
        }
        runPatternPath(parameters, portName, boardInfo, logger);
        return;
    }
    runCapturePath(parameters, portName, api, boardInfo, logger, portClaim);
}

}  // namespace

bool claimPort(const std::string& portName, system::ipc::v2::ProcessClaim& claim) {
    using system::ipc::v2::ProcessClaim;
    if (claim.held()) {
        return true;
    }
    const std::string name = kPortClaimPrefix + portName;
    claim = ProcessClaim::take(name);
    if (claim.held()) {
        return true;
    }
    if (claim.error() != EADDRINUSE) {
        std::cerr << "Could not claim port " << portName << ": " << std::strerror(claim.error()) << std::endl;
        return false;
    }
    const std::optional<int> holder = ProcessClaim::holder(name);
    std::cerr << "Port " << portName << " is already served by "
              << (holder ? "sdi_tap process " + std::to_string(*holder)
                         : std::string("another sdi_tap process"))
              << "; this run ends and leaves it untouched (stop it first with sdi_tap_stop " << portName
              << ")" << std::endl;
    return false;
}

void consoleControlHandler() {
    if (SdiTap* engine = captureEngine.load()) {
        engine->requestStop();
    }
    keepRunning.store(false);
}

std::string firmwareRootFromPathname(const std::string& pathname) {
    const std::size_t mark = pathname.find("/App");
    return mark == std::string::npos ? pathname : pathname.substr(0, mark);
}

bool findFirmwareRoot(std::string& root) {
    root = "D:\\FIRMWARE";  // never used: every path that does not overwrite it returns false
    using system::registry::v1::RegistryKey;
    std::optional<RegistryKey> key = RegistryKey::open(kRegistryKeys[0]);
    if (!key) {
        key = RegistryKey::open(kRegistryKeys[1]);
    }
    if (!key) {
        return false;
    }
    const std::optional<std::string> pathname = key->queryValue("Pathname", kPathnameBufferSize);
    if (!pathname || !pathname->starts_with('/')) {  // an empty or relative value names no root
        return false;
    }
    root = firmwareRootFromPathname(*pathname);
    return true;
}

std::string composePortName(bool fourHdQuads, std::int32_t sdiPort) {
    return fourHdQuads ? "4K" : std::to_string(sdiPort);
}

int mainRoutine(const std::vector<std::string>& arguments) {
    RunParameters parameters;
    bool patternRequested = false;
    log::log_perf::v4::ConsoleSink consoleSink;
    log::log_perf::v4::LogFileSink fileSink(kLogHistoryLimit);
    log::log_perf::v4::LibLogPerf logger;
    logger.AddSink(&consoleSink);

    const std::uint32_t boardChannels = boardChannelCount();
    const std::uint32_t portLimit = std::max<std::uint32_t>(1, boardChannels);
    if (!parseArguments(arguments, parameters, portLimit, patternRequested)) {
        printUsage(std::cerr, arguments.empty() ? std::string() : arguments[0], portLimit);
        return kExitFailure;
    }
    if (!system::process::v1::setConsoleControlHandler(&consoleControlHandler)) {
        std::cerr << "Could not set control handler" << std::endl;
    }
    std::string firmwareRoot;
    if (!findFirmwareRoot(firmwareRoot)) {
        throw std::runtime_error("Could not find firmware root path");
    }
    const std::string portName = composePortName(parameters.fourHdQuads, parameters.sdiPort);
    if (const std::optional<std::string> problem = system::ipc::v2::objectAccessProblem()) {
        std::cerr << *problem << std::endl;
        return kExitFailure;
    }
    // One run per port, claimed before the log file and the named objects of the port. A run
    // with a board claims the port once its stream is open (runCapturePath).
    system::ipc::v2::ProcessClaim portClaim;
    if ((patternRequested || boardChannels == 0) && !claimPort(portName, portClaim)) {
        return kExitFailure;
    }
    // An installer would have made the Logs directory; make it when it is missing.
    system::file::v2::createDirectories(firmwareRoot + "/Logs");
    fileSink.SetFileSizeLimit(log::log_perf::v4::kDaemonLogFileSizeLimit);
    fileSink.SetFile(firmwareRoot + "/Logs/sdi_tap." + portName + ".log");
    logger.AddSink(&fileSink);
    system::process::v1::raiseToRealtimePriority();

    try {
        runGuardedRegion(parameters, portName, patternRequested, logger, portClaim);
    } catch (const PortServedElsewhere&) {
        return kExitFailure;
    } catch (const device::DeltacastException& e) {
        std::cerr << "Deltacast exception:" << e.what() << std::endl;
        return e.code == device::kDeviceStreamAlreadyUsed ? kExitStreamAlreadyUsed : kExitFailure;
    } catch (const std::exception& e) {
        std::cerr << "Exception:" << e.what() << std::endl;
        return kExitFailure;
    }
    return kExitOk;
}

int processEntry(int argc, char** argv) {
    system::process::v1::installFaultHandling();
    const system::console::v1::NonBlockingStandardError standardError;  // never waits for a reader
    try {
        return mainRoutine(std::vector<std::string>(argv, argv + argc));
    } catch (const std::exception& e) {
        std::cerr << "Error: " << e.what() << std::endl;
    } catch (...) {
        std::cerr << "Unknown error\n";
    }
    return kExitFailure;
}

}  // namespace ovtx::app::sdi_tap::v1
