#include "tools/brenloft/ServeCommand.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "gateway/Secret.h"
#include "gateway/history/HistoryWriter.h"
#include "gateway/web/PageServer.h"
#include "platform/sources/Source.h"
#include "tools/brenloft/CommandSettings.h"
#include "tools/brenloft/Following.h"
#include "tools/brenloft/HearingDeclarations.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/OptionDeclarations.h"
#include "tools/brenloft/Store.h"

namespace brenloft {
namespace {

constexpr std::size_t kShortestToken = 16;  // what nobody guesses

Secret readToken(const std::filesystem::path& file) {
  if (const auto problem = secretProblem(file)) throw Failure(ExitStatus::failed, problem->text);
  std::ifstream stream(file);
  std::string token;
  std::getline(stream, token);
  if (token.ends_with('\r')) token.pop_back();
  if (token.size() < kShortestToken)
    throw Failure(ExitStatus::failed,
                  fmt::format("{}: its first line is the token, of {} characters at least; make one with "
                              "openssl rand -hex 16",
                              file.string(), kShortestToken));
  return Secret(std::move(token));
}

// What is made up does not come among what was heard: its history goes with it.
class DemoFolder {
 public:
  explicit DemoFolder(bool isWanted) {
    std::string name = (std::filesystem::temp_directory_path() / "brenloft-demo-XXXXXX").string();
    if (!isWanted) return;
    if (::mkdtemp(name.data()) == nullptr)
      throw Failure(ExitStatus::failed, name + ": " + std::generic_category().message(errno));
    path_ = name;
  }
  ~DemoFolder() {
    std::error_code error;
    if (!path_.empty()) std::filesystem::remove_all(path_, error);
  }
  DemoFolder(const DemoFolder&) = delete;
  DemoFolder& operator=(const DemoFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

std::filesystem::path historyOf(const ServeOptions& options) {
  return folderOfContainer(options.container) / kHistoryFileName;
}

web::PageServerOptions serverOptions(const ServeOptions& options) {
  web::PageServerOptions server{.history = historyOf(options),
                                .title = options.title,
                                .listen = options.listen,
                                .version = BRENLOFT_VERSION};
  if (!options.token.empty()) server.token = readToken(options.token);
  return server;
}

void requireToken(const ServeOptions& options) {
  if (options.listen.isLoopback() || !options.token.empty() || options.isInsecure) return;
  throw CLI::ValidationError("--listen " + options.listen.text(),
                             "others reach this address; --token FILE asks them for a token, --insecure lets "
                             "everybody look");
}

Follower followerOf(const ServeOptions& options,
                    const std::shared_ptr<platform::RealTimeDispatch>& dispatch) {
  auto opened = web::PageServer::open(serverOptions(options), dispatch, options.settings);
  if (!opened) throw Failure(ExitStatus::failed, "--listen " + opened.error().text);
  const std::shared_ptr<web::PageServer> server = *std::move(opened);
  const bool isHearing = !options.hearing.source.empty();
  const auto tell = [server, isHearing, history = historyOf(options)] {
    printMessage("brenloft: the page is at " + server->url());
    std::error_code error;
    if (!isHearing && !std::filesystem::exists(history, error))
      printMessage(
          fmt::format("brenloft: {}: no history yet; this waits for it. --source SOURCE hears and keeps one, "
                      "--container names another folder",
                      history.string()));
  };
  return {.run = [server, tell] { return server->run(tell); },
          .stop = [server] { server->stop(); },
          .wake = [server] { server->wake(); }};
}

}  // namespace

ExitStatus runServe(const ServeOptions& options) {
  ServeOptions settled = options;
  settled.hearing.source = platform::pacedSource(options.hearing.source);
  const DemoFolder demo(platform::isDemo(options.hearing.source) && options.container.empty());
  if (!demo.path().empty()) settled.container = demo.path();
  return runFollowing({settled.container, settled.settings, settled.hearing, true},
                      [&](const auto& dispatch) { return followerOf(settled, dispatch); });
}

void addServe(CLI::App& app, ChosenCommand& run) {
  auto options = std::make_shared<ServeOptions>();
  auto* command = app.add_subcommand("serve", "Show the history as a live page in a browser");
  command
      ->add_option_function<std::string>(
          "--listen",
          [options](const std::string& text) {
            const auto address = web::ListenAddress::fromText(text);
            if (!address)
              throw CLI::ValidationError(
                  "--listen",
                  fmt::format("'{}' is not an address and port such as 127.0.0.1:8880 or [::1]:8880", text));
            options->listen = *address;
          },
          "an address of this machine, and a port; default: 127.0.0.1:8880")
      ->type_name("ADDRESS:PORT");
  addContainer(*command, options->container);
  addPath(*command, "--token", options->token,
          "a file whose first line is the password for browsers and programs; needed where other machines "
          "reach the address");
  command->add_flag("--insecure", options->isInsecure,
                    "without a token: everybody who reaches the address may look");
  command->add_option("--title", options->title, "what stands at the page's top; default: Beacons");
  addHearing(*command, options->hearing);
  command->callback([&run, options] {
    requireToken(*options);
    options->settings = run.settings;
    chooseBeacons(options->hearing.gateway, run.settings.get());
    run = [options] { return runServe(*options); };
  });
}

}  // namespace brenloft
