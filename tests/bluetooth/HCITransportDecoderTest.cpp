#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/bluetooth/hci/H4Decoder.h"
#include "platform/bluetooth/hci/HCIPackets.h"
#include "platform/foundation/Hex.h"

namespace {

using namespace platform;
using namespace platform::hci;

struct StreamCase {
  const char* name;
  const char* stream;
  std::vector<std::string> packets;
  uint64_t skipped;
};

const StreamCase kStreams[] = {
    {"one event", "040e0401030c00", {"040e0401030c00"}, 0},
    {"two events", "040e0401030c00041001aa", {"040e0401030c00", "041001aa"}, 0},
    {"an event without parameters", "04ff00041001aa", {"04ff00", "041001aa"}, 0},
    {"a command of another program", "010c2002010004100142", {"010c20020100", "04100142"}, 0},
    {"ACL, SCO and ISO data",
     "02010002000102030100010905010001000a",
     {"02010002000102", "0301000109", "05010001000a"},
     0},
    {"ISO data, whose length leaves two bits to others",
     "05010001c00a041001aa",
     {"05010001c00a", "041001aa"},
     0},
    {"garbage in front", "ffee00041001aa", {"041001aa"}, 3},
    {"garbage between", "041001aa7e7e041001bb", {"041001aa", "041001bb"}, 2},
    {"garbage that looks like an event of no known kind", "00042000041001aa", {"041001aa"}, 4},
    {"garbage that looks like an answer, with nothing sensible behind",
     "00040f0411223344ff041001aa",
     {"041001aa"},
     9},
    {"huge ACL data is garbage", "020100ffff041001aa", {"041001aa"}, 5},
    {"a packet that has not ended", "043e20", {}, 0},
};

std::vector<std::string> decode(H4Decoder& decoder, const Data& stream, std::size_t piece) {
  std::vector<std::string> packets;
  for (std::size_t at = 0; at < stream.size(); at += piece) {
    const auto octets = DataView(stream).subspan(at, std::min(piece, stream.size() - at));
    decoder.feed(octets, [&](DataView packet) { packets.push_back(hexText(packet)); });
  }
  return packets;
}

TEST(HCITransportDecoderTest, CutsStreamsIntoPacketsWhateverPiecesTheyComeIn) {
  for (const auto& row : kStreams) {
    SCOPED_TRACE(row.name);
    const Data stream = octetsFromHex(row.stream).value();
    // What follows a doubtful packet is not known yet when it comes in pieces.
    for (std::size_t piece = row.skipped > 0 ? stream.size() : 1; piece <= stream.size(); ++piece) {
      H4Decoder decoder;
      EXPECT_EQ(decode(decoder, stream, piece), row.packets) << "in pieces of " << piece;
      EXPECT_EQ(decoder.skippedOctets(), row.skipped);
    }
  }
}

TEST(HCITransportDecoderTest, LosesFewPacketsWhenOctetsAreLost) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const Data report = octetsFromHex("043e15020103010100000000c00902010605ff3412abcdc4").value();
  Data stream;
  constexpr std::size_t kPackets = 20'000;
  std::size_t damaged = 0;
  for (std::size_t i = 0; i < kPackets; ++i) {
    const bool isDamaged = random() % 100 == 0;
    const std::size_t lost = isDamaged ? random() % report.size() : report.size();
    damaged += isDamaged ? 1 : 0;
    for (std::size_t k = 0; k < report.size(); ++k) {
      if (k != lost) stream.push_back(report[k]);
    }
  }
  H4Decoder decoder;
  std::size_t intact = 0;
  decoder.feed(stream, [&](DataView packet) { intact += hexText(packet) == hexText(report) ? 1 : 0; });
  EXPECT_GE(intact, kPackets - 3 * damaged - 1);
}

}  // namespace
