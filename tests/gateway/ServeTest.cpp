#include <array>
#include <thread>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "gateway/web/PageServer.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "tests/gateway/HistoryFixture.h"

namespace brenloft {
namespace {

using namespace std::chrono_literals;
using namespace web;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(Request, IsReadHoweverItIsWritten) {
  const auto target = targetOf("/api/history?beacon=Milk%2C+front&since=%402&since=3&=x");
  ASSERT_TRUE(target);
  EXPECT_EQ(target->path, "/api/history");
  EXPECT_EQ(target->query, (std::map<std::string, std::string>{{"beacon", "Milk, front"}, {"since", "3"}}));
  for (const char* wrong : {"", "*", "http://a/", "/%", "/%4", "/%zz", "/a%00b", "/%ff", "/?a=%0d%0aX: y"})
    EXPECT_FALSE(targetOf(wrong)) << wrong;
  EXPECT_EQ(targetOf("/%2e%2e/etc")->path, "/../etc") << "no route, and no file";
  EXPECT_TRUE(accepts("br;q=1.0, GZIP;q=0.5", "gzip"));
  EXPECT_FALSE(accepts("gzip;q=0.00, br", "gzip"));
  EXPECT_TRUE(hasTag("\"a\", W/\"b\"", "\"b\""));
  for (const char* host : {"localhost", "LOCALHOST:8880", "127.0.0.1:1", "[::1]:8880"})
    EXPECT_TRUE(isThisMachine(host)) << host;
  for (const char* host :
       {"", "127.0.0.1.evil.example", "evil.example:8880", "[::2]", "localhost.evil.example"})
    EXPECT_FALSE(isThisMachine(host)) << host;
  const Secret token("0123456789abcdef");
  EXPECT_TRUE(isAuthorized("Bearer 0123456789abcdef", token));
  EXPECT_TRUE(isAuthorized("basic bWU6MDEyMzQ1Njc4OWFiY2RlZg==", token));
  for (const char* wrong : {"", "Bearer", "Bearer 0123456789abcdeg", "Bearer 0123456789abcdef0", "Basic bWU6",
                            "Basic MDEyMzQ1Njc4OWFiY2RlZg=="})
    EXPECT_FALSE(isAuthorized(wrong, token)) << wrong;
}

TEST(Request, SaysWhatIsWrongWithAQuestionForHistory) {
  Settings settings;
  settings.beacons[BeaconId::sensor("C0-C1-5C-00-00-01")] = {.name = "Fridge"};
  const auto ask = [&](const char* text) {
    return historyQueryOf({.target = *targetOf(text)}, settings, kNow);
  };
  const auto asked =
      std::get<HistoryQuery>(ask("/?beacon=Fridge&since=2h&until=1795219200&points=9&format=csv"));
  EXPECT_EQ(asked.beacon, BeaconId::sensor("C0-C1-5C-00-00-01"));
  EXPECT_EQ(asked.span.since, kNow - 2h);
  EXPECT_EQ(asked.span.until, kNow) << "no later than now";
  EXPECT_TRUE(asked.points == 9 && asked.isCsv);
  const std::pair<const char*, const char*> wrong[] = {
      {"/", "beacon: whose"},
      {"/?beacon=Frigde", "did you mean Fridge?"},
      {"/?beacon=Fridge&since=soon", "since: 'soon'"},
      {"/?beacon=Fridge&since=99999999999999999999", "until is not after since"},
      {"/?beacon=Fridge&points=0", "points: '0'"},
      {"/?beacon=Fridge&points=9e9", "points: '9e9'"},
      {"/?beacon=Fridge&format=xml", "format: 'xml'"},
      {"/?beacon=Fridge&pionts=3", "did you mean points?"}};
  for (const auto& [text, reason] : wrong)
    EXPECT_THAT(std::get<std::string>(ask(text)), HasSubstr(reason)) << text;
}

TEST(ListenAddress, IsOfThisMachine) {
  EXPECT_EQ(ListenAddress::fromText("9000")->text(), "127.0.0.1:9000");
  EXPECT_EQ(ListenAddress::fromText("localhost:1")->text(), "127.0.0.1:1");
  EXPECT_EQ(ListenAddress::fromText("::1")->text(), "[::1]:8880");
  EXPECT_FALSE(ListenAddress::fromText("[::]:80")->isLoopback());
  EXPECT_FALSE(ListenAddress::fromText("0.0.0.0")->isLoopback());
  for (const char* wrong : {"", ":", "a:1", "127.0.0.1:", "127.0.0.1:99999", "[::1", "1.2.3.4:5x"})
    EXPECT_FALSE(ListenAddress::fromText(wrong)) << wrong;
}

std::string readAll(EventStream& stream) {
  std::string text(10'000, '\0');
  text.resize(stream.read(text.data(), text.size()));
  return text;
}

TEST(EventStream, GivesEachEventOnceAndLeavesWhoIsTooSlow) {
  auto ring = std::make_shared<EventRing>(10);
  std::vector<int64_t> asked;
  const auto ask = [&](int64_t after) { asked.push_back(after); };
  EventStream now(ring, 10, "hello ", ask);
  EventStream late(ring, 3, "", ask);
  ring->add(11, "11 ");
  ring->add(13, "13 ");
  EXPECT_EQ(readAll(now), "hello 11 13 ");
  EXPECT_EQ(now.state(), EventStream::State::waiting);
  EXPECT_EQ(readAll(late), "");
  EXPECT_EQ(late.state(), EventStream::State::waiting);
  EXPECT_EQ(asked, std::vector<int64_t>{3});
  late.missed("4 9 ", 9);
  EXPECT_EQ(readAll(late), "4 9 ");
  late.missed("10 11 12", 12);
  EXPECT_EQ(readAll(late), "10 11 1213 ") << "then what the ring has, none of it twice";
  EventStream busy(ring, 13, "hello ", ask);
  busy.say("heartbeat ");
  busy.tell(std::make_shared<const std::string>("notice "));
  EXPECT_EQ(readAll(busy), "hello notice ") << "who has something to say needs no heartbeat";
  for (int64_t seq = 14; seq < 14 + static_cast<int64_t>(EventRing::kMostEvents); ++seq) ring->add(seq, "x");
  EXPECT_EQ(now.state(), EventStream::State::ready) << "just in time";
  ring->add(100'000, "x");
  EXPECT_EQ(late.state(), EventStream::State::ended);
}

// A client that sends what it likes.
class Client {
 public:
  explicit Client(const std::string& url) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
    EXPECT_EQ(::connect(socket_, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    const timeval patience{20, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }
  ~Client() { ::close(socket_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void send(const std::string& text) { ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL); }
  /// Up to a text that comes, or to the end.
  std::string readTo(const std::string& last) {
    while (last.empty() || got_.find(last) == std::string::npos) {
      std::array<char, 4096> part{};
      const ssize_t size = ::recv(socket_, part.data(), part.size(), 0);
      if (size <= 0) break;
      got_.append(part.data(), static_cast<std::size_t>(size));
    }
    return got_;
  }

 private:
  const int socket_;
  std::string got_;
};

class ServeTest : public HistoryTest {
 protected:
  void serve(PageServerOptions options = {}) {
    options.history = file_;
    options.listen = *ListenAddress::fromText("127.0.0.1:0");
    auto opened = PageServer::open(std::move(options), platform::RealTimeDispatch::make(), settings());
    ASSERT_TRUE(opened) << opened.error().text;
    server_ = *std::move(opened);
    thread_ = std::thread([this] { EXPECT_TRUE(server_->run()); });
  }
  void TearDown() override {
    server_->stop();
    thread_.join();
  }
  static std::shared_ptr<LiveSettings> settings() {
    return std::make_shared<LiveSettings>(SettingsReader("none", SettingsReader::Absence::isAllowed, {}),
                                          std::make_shared<const Settings>());
  }
  std::string ask(const std::string& line, const std::string& headers = {}) {
    Client client(server_->url());
    client.send(line + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" + headers + "\r\n");
    return client.readTo("");
  }

  std::unique_ptr<PageServer> server_;
  std::thread thread_;
};

TEST_F(ServeTest, AnswersWhoIsThisMachineAndOnlyAsks) {
  auto writer = openWriter();
  writer->accept(reading(1, kNow, 400));
  writer->flush();
  serve();
  const std::string page = ask("GET /");
  EXPECT_THAT(page, AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("frame-ancestors 'none'"), HasSubstr("<h1>"),
                          HasSubstr("src=\"page.js\""), Not(HasSubstr("<style"))));
  EXPECT_THAT(ask("HEAD /page.css"), AllOf(StartsWith("HTTP/1.1 200"), Not(HasSubstr("--bg"))));
  const std::string script = ask("GET /page.js", "Accept-Encoding: gzip\r\n");
  EXPECT_THAT(script, HasSubstr("Content-Encoding: gzip"));
  const std::size_t tag = script.find("ETag: ") + 6;
  EXPECT_THAT(
      ask("GET /page.js", "If-None-Match: " + script.substr(tag, script.find('\r', tag) - tag) + "\r\n"),
      StartsWith("HTTP/1.1 304"));
  EXPECT_THAT(ask("GET /api/history?beacon=C0-C1-5C-00-00-01&since=1795100000&format=csv"),
              HasSubstr("\n1795219200,4.00,4.00,4.00,,,,-60.0,-60,-60,90.0,90,90\n"));
  EXPECT_THAT(ask("GET /api/history?beacon=nobody"),
              AllOf(StartsWith("HTTP/1.1 400"), HasSubstr("{\"error\":\"beacon: 'nobody'")));
  for (const char* path :
       {"/../history.sqlite", "/%2e%2e/%2e%2e/etc/passwd", "//etc/passwd", "/page.css/..", "/api/"})
    EXPECT_THAT(ask(std::string("GET ") + path), StartsWith("HTTP/1.1 404")) << path;
  EXPECT_THAT(ask("DELETE /"), StartsWith("HTTP/1.1 405"));
  EXPECT_THAT(ask("GET /", "Content-Length: 1000000000\r\n"), StartsWith("HTTP/1.1 413"));
  EXPECT_THAT(ask("GET /", "X: " + std::string(100'000, 'x') + "\r\n"), StartsWith("HTTP/1.1 431"));
  Client elsewhere(server_->url());
  elsewhere.send("GET / HTTP/1.1\r\nHost: evil.example\r\n\r\n");
  EXPECT_THAT(elsewhere.readTo("}"), StartsWith("HTTP/1.1 421"));
}

TEST_F(ServeTest, AStreamGoesOnWhereItEnded) {
  auto writer = openWriter();
  for (int i = 0; i < 1200; ++i) writer->accept(reading(1, kNow + std::chrono::seconds(i), i));
  writer->flush();
  serve();
  Client client(server_->url());
  client.send("GET /api/events HTTP/1.0\r\nHost: localhost\r\nLast-Event-ID: 7\r\n\r\n");
  client.readTo("id: 1200\n");
  writer->accept(
      BeaconEvent{.beacon = {}, .heard = kNow, .kind = BeaconEvent::Kind::radio, .text = "poweredOff"});
  writer->flush();
  const std::string got = client.readTo("\"text\":\"poweredOff\"");
  EXPECT_THAT(got, AllOf(HasSubstr("event: time\n"), HasSubstr("id: 1201\nevent: radio\n")));
  std::vector<std::string> numbers;
  for (std::size_t at = got.find("\nid: "); at != std::string::npos; at = got.find("\nid: ", at + 1))
    numbers.push_back(got.substr(at + 5, got.find('\n', at + 5) - at - 5));
  ASSERT_EQ(numbers.size(), 1195U) << "the first is its own: who has had no row yet asks again with it";
  for (std::size_t i = 0; i < numbers.size(); ++i) EXPECT_EQ(numbers[i], std::to_string(7 + i));
  Client after(server_->url());
  after.send("GET /api/events?after=1200 HTTP/1.0\r\nHost: localhost\r\n\r\n");
  EXPECT_THAT(after.readTo("id: 1201"),
              AllOf(HasSubstr("id: 1201"), Not(HasSubstr("id: 1200\nevent: reading"))));
  Client ahead(server_->url());
  ahead.send("GET /api/events HTTP/1.1\r\nHost: localhost\r\nLast-Event-ID: 5000\r\n\r\n");
  EXPECT_THAT(ahead.readTo("data: {}"), HasSubstr("event: resync"));
}

TEST_F(ServeTest, WhoFollowsIsToldOfAnotherHistoryAndMissesNothingOfTheFirst) {
  serve();
  Client early(server_->url());
  early.send("GET /api/events HTTP/1.0\r\nHost: localhost\r\n\r\n");
  early.readTo("id: 0\nevent: time");
  const auto write = [this](const std::filesystem::path& file, int rows) {
    auto writer = *HistoryWriter::open(file, {}, dispatch_, dispatch_->mainQueue(), {});
    for (int i = 0; i < rows; ++i) writer->accept(reading(1, kNow + std::chrono::seconds(i), 400));
  };
  write(file_, 1);
  EXPECT_THAT(early.readTo(""), Not(HasSubstr("resync")));
  Client again(server_->url());
  again.send("GET /api/events HTTP/1.0\r\nHost: localhost\r\nLast-Event-ID: 0\r\n\r\n");
  again.readTo("id: 1\nevent: reading");
  const auto other = folder_ / "other.sqlite";
  write(other, 2);
  std::filesystem::rename(other, file_);
  EXPECT_THAT(again.readTo(""), HasSubstr("\n\nid:\nevent: resync\ndata: {}\n\n"));
}

TEST_F(ServeTest, WhenTheWriterEndsNothingListensUntilItIsBack) {
  auto writer = openWriter();
  writer->accept(reading(1, platform::RealTimeDispatch::make()->date(), 400));
  writer->flush();
  serve();
  EXPECT_THAT(ask("GET /healthz"), AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("\"reason\":null")));
  EXPECT_THAT(ask("GET /metrics"), HasSubstr("\nbrenloft_radio_listening 1\n"));
  Client stream(server_->url());
  stream.send("GET /api/events HTTP/1.0\r\nHost: localhost\r\n\r\n");
  stream.readTo("event: time");
  writer.reset();
  EXPECT_THAT(ask("GET /healthz"),
              AllOf(StartsWith("HTTP/1.1 503"), HasSubstr("no process writes the history")));
  stream.readTo("event: writer\ndata: false");
  EXPECT_THAT(ask("GET /metrics"), HasSubstr("\nbrenloft_radio_listening 0\n"));
  EXPECT_THAT(ask("GET /api/beacons"), HasSubstr("\"present\":null"));
  writer = openWriter();
  stream.readTo("event: writer\ndata: true");
  EXPECT_THAT(ask("GET /metrics"), HasSubstr("\nbrenloft_radio_listening 1\n"));
  EXPECT_THAT(ask("GET /healthz"), StartsWith("HTTP/1.1 200"));
}

TEST_F(ServeTest, WhoDoesNotKnowTheTokenAndWhoHoldsPlacesAreLeft) {
  PageServerOptions options;
  options.token = Secret("0123456789abcdef");
  options.limits = {.connections = 3, .streams = 1, .requestTime = 1s};
  serve(options);
  EXPECT_THAT(ask("GET /page.css"), AllOf(StartsWith("HTTP/1.1 401"), HasSubstr("WWW-Authenticate: Basic")));
  EXPECT_THAT(ask("GET /healthz", "Authorization: Bearer 0123456789abcdef\r\n"),
              AllOf(StartsWith("HTTP/1.1 503"), HasSubstr("no history yet")));
  const std::string streamed =
      "GET /api/events HTTP/1.1\r\nHost: a\r\nAuthorization: Bearer 0123456789abcdef\r\n\r\n";
  Client stream(server_->url());
  stream.send(streamed);
  stream.readTo("event: time");
  Client second(server_->url());
  second.send(streamed);
  EXPECT_THAT(second.readTo("}"), StartsWith("HTTP/1.1 503"));
  Client slow(server_->url());
  slow.send("GET / HT");
  Client fourth(server_->url());
  EXPECT_EQ(fourth.readTo(""), "") << "no room";
  EXPECT_EQ(slow.readTo(""), "") << "its second is over";
  std::string again;
  for (int i = 0; i < 1000 && again.empty(); ++i) again = ask("GET /page.css");
  EXPECT_THAT(again, StartsWith("HTTP/1.1 401")) << "there is room again";
}

}  // namespace
}  // namespace brenloft
