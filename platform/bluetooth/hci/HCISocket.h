#pragma once

#include <cstdint>

#include <sys/ioctl.h>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/hci/FileDescriptor.h"

// The kernel's interface to Bluetooth adapters, as far as it is used here. It is stable; stating it avoids a
// dependency on the headers of the Bluetooth daemon.

namespace platform::hci {

inline constexpr int kBluetoothFamily = 31;  // AF_BLUETOOTH
inline constexpr int kHCIProtocol = 1;       // BTPROTO_HCI
inline constexpr int kHCILevel = 0;          // SOL_HCI
inline constexpr int kHCIFilterOption = 2;   // HCI_FILTER
inline constexpr uint16_t kRawChannel = 0;   // HCI_CHANNEL_RAW
inline constexpr uint16_t kUserChannel = 1;  // HCI_CHANNEL_USER
inline constexpr int kMostAdapters = 16;     // HCI_MAX_DEV

struct HCISocketAddress {  // sockaddr_hci
  uint16_t family = kBluetoothFamily;
  uint16_t device = 0;
  uint16_t channel = kRawChannel;
};

struct HCISocketFilter {  // hci_filter
  uint32_t types = 0;
  uint32_t events[2] = {0, 0};
  uint16_t opcode = 0;
};

struct HCIDeviceList {  // hci_dev_list_req
  struct Entry {
    uint16_t index = 0;
    uint32_t flags = 0;
  };
  uint16_t count = kMostAdapters;
  Entry entries[kMostAdapters];
};

struct HCIDeviceInfo {  // hci_dev_info
  uint16_t index = 0;
  char name[8] = {};
  uint8_t address[6] = {};  ///< least significant octet first
  uint32_t flags = 0;
  uint8_t rest[72] = {};
};
inline constexpr uint32_t kFlagUp = 1;  // HCI_UP

inline constexpr unsigned long kGetDeviceList = _IOR('H', 210, int);  // HCIGETDEVLIST
inline constexpr unsigned long kGetDeviceInfo = _IOR('H', 211, int);  // HCIGETDEVINFO
inline constexpr unsigned long kSetRaw = _IOW('H', 220, int);  // HCISETRAW, which no kernel grants any more

/// A new, unbound HCI socket; when there is none, errno says why.
FileDescriptor openHCISocket();
/// Gives a socket its adapter and channel; when that is refused, errno says why.
bool bindHCISocket(const FileDescriptor& socket, int index, uint16_t channel);
/// False when there is no such adapter any more.
bool readDeviceInfo(const FileDescriptor& socket, int index, HCIDeviceInfo& info);
BluetoothAddress addressOf(const HCIDeviceInfo& info);

}  // namespace platform::hci
