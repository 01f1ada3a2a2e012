#pragma once

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLRecordList.h"
#include "platform/foundation/Export.h"

class BRLContextManager;

/// The four operations that a delegate may have.
enum class BRLDelegateOperation { forBeacon, didRangeBeaconSensors, didByteArray, emergencyCallback };

/// The one channel through which the library reports to an application. All four operations are optional: one
/// that the application does not override is never called. The sensor log depends on the delegate for losses
/// only: one by silence or by a region's exit is logged when the delegate heard of it, one by `stop` never.
///
/// Derive from `BRLDelegateOf<YourClass>`, which knows from the type which operations you override, and mark
/// each `override`; or use `BRLDelegateHandlers` for lambdas.
///
/// Threads: an operation is called on the thread of its event, several of them possibly at the same time: the
/// scanner queue (sensor advertisements), the main queue (losses, regions and ranging), the caller of `start`
/// and `stop`. No lock is held: an operation may call back into the library.
/// Exceptions: one that leaves an operation ends the process (std::terminate), on any thread.
///
/// Ownership: the manager does not own its delegate. A call that has begun on another thread may still run
/// after `setDelegate` installed another delegate. So keep a delegate alive until the queues are quiet, or to
/// the end of the process. Records are live and may be kept; the list is the manager's own.
class BRL_EXPORT BRLContextManagerDelegate {
 public:
  virtual ~BRLContextManagerDelegate() = default;

  /// -[contextManager:forBeacon:]
  /// A record was made (it is not in the list yet), refreshed by an advertisement, or changed its status.
  virtual void contextManager_forBeacon(BRLContextManager& manager,
                                        const std::shared_ptr<BRLBeaconDataModel>& beacon);
  /// -[contextManager:didRangeBeaconSensors:]
  /// The end of a ranging report that had a beacon in it. `beacons` has the known records of both kinds.
  virtual void contextManager_didRangeBeaconSensors(BRLContextManager& manager, const BRLRecordList& beacons);
  /// -[contextManager:didByteArray:]
  /// Every octet of a sensor advertisement's manufacturer data, as two upper-case hexadecimal digits each.
  virtual void contextManager_didByteArray(BRLContextManager& manager,
                                           const std::vector<std::string>& octets);
  /// -[emergencyCallback:forBeacon:]
  /// An advertisement signalled an emergency. When a lost beacon returns with one, `forBeacon` alone is
  /// called; this call follows with its next advertisement.
  virtual void emergencyCallback_forBeacon(BRLContextManager& manager,
                                           const std::shared_ptr<BRLBeaconDataModel>& beacon);

  /// -[respondsToSelector:]
  /// Asked before every call.
  virtual bool respondsTo(BRLDelegateOperation operation) const noexcept = 0;
};

/// Answers `respondsTo` from the type of `Application`: an operation counts when `Application`, or `Base`
/// below it, overrides it. A name with another signature does not compile, nor do two operations of one
/// name. `Application` must be final: a class derived from it would add operations unnoticed. To extend a
/// delegate, derive with `BRLDelegateOf<Extended, Earlier>` from an `Earlier` that is a template over its
/// final class or that says `using BRLOpenDelegate = Earlier;`.
template <typename Application, typename Base = BRLContextManagerDelegate>
class BRLDelegateOf : public Base {
 public:
  using Base::Base;

  bool respondsTo(BRLDelegateOperation operation) const noexcept override {
    static_assert(
        std::is_final_v<Application> ||
            requires { requires std::is_same_v<typename Application::BRLOpenDelegate, Application>; },
        "a delegate class must be final, or say 'using BRLOpenDelegate =' and its own name");
    using Root = BRLContextManagerDelegate;
    switch (operation) {
      case BRLDelegateOperation::forBeacon:
        return overrides<decltype(&Application::contextManager_forBeacon),
                         decltype(&Root::contextManager_forBeacon)>();
      case BRLDelegateOperation::didRangeBeaconSensors:
        return overrides<decltype(&Application::contextManager_didRangeBeaconSensors),
                         decltype(&Root::contextManager_didRangeBeaconSensors)>();
      case BRLDelegateOperation::didByteArray:
        return overrides<decltype(&Application::contextManager_didByteArray),
                         decltype(&Root::contextManager_didByteArray)>();
      case BRLDelegateOperation::emergencyCallback:
        return overrides<decltype(&Application::emergencyCallback_forBeacon),
                         decltype(&Root::emergencyCallback_forBeacon)>();
    }
    return false;
  }

 private:
  // Pointers to the two members of one name. That of `Application` still has the type of the class that it
  // comes from, and the root's when nothing overrides it.
  template <typename Member, typename Inherited>
  static consteval bool overrides() {
    constexpr bool hasItsSignature = requires {
      sameSignature(Inherited(), Member());
    };
    static_assert(hasItsSignature,
                  "this operation would never be called: give it the signature that it has in "
                  "BRLContextManagerDelegate, and mark it override");
    return !std::is_same_v<Member, Inherited>;
  }
  template <typename Class, typename Inherited, typename... Arguments>
  static void sameSignature(void (Inherited::*)(Arguments...), void (Class::*)(Arguments...));
};

/// A delegate made of functions; an empty one counts as not there. Set them before it is installed.
class BRL_EXPORT BRLDelegateHandlers final : public BRLContextManagerDelegate {
 public:
  using Beacon = std::shared_ptr<BRLBeaconDataModel>;

  std::function<void(BRLContextManager&, const Beacon&)> forBeacon;
  std::function<void(BRLContextManager&, const BRLRecordList&)> didRangeBeaconSensors;
  std::function<void(BRLContextManager&, const std::vector<std::string>&)> didByteArray;
  std::function<void(BRLContextManager&, const Beacon&)> emergencyCallback;

  void contextManager_forBeacon(BRLContextManager& manager, const Beacon& beacon) override;
  void contextManager_didRangeBeaconSensors(BRLContextManager& manager,
                                            const BRLRecordList& beacons) override;
  void contextManager_didByteArray(BRLContextManager& manager,
                                   const std::vector<std::string>& octets) override;
  void emergencyCallback_forBeacon(BRLContextManager& manager, const Beacon& beacon) override;
  bool respondsTo(BRLDelegateOperation operation) const noexcept override;
};
