#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <tuple>

#include "archiving/IResult.h"
#include "archiving/IScanner.h"

namespace qvArchiving {

// Where all who want files of a bucket ask for them. It knows what is under way: equal wishes share
// one transfer, whichever search or scanner they come from, and one that nobody waits for any more
// is cancelled. What has come it forgets with the last ticket: the local copy tells.
//
// One desk for each mounted path, owned by the tickets and made anew when there is none. It has no
// thread; transfers run on their scanner's. Any thread; the lock is held while a transfer is
// started, never while one is waited for.
class TransferDesk : public std::enable_shared_from_this<TransferDesk> {
  struct Transfer;

 public:
  struct Wish {
    std::string path;  // of the local copy
    std::uint64_t offset = 0;
    std::uint64_t bytes = 0;           // with offset 0: 0 for the whole file
    std::uint64_t limit = UINT64_MAX;  // what is seen to be larger while it is waited for ends
    // Asked when no such transfer is under way: true for what is here already. Must not use the
    // desk. May be empty.
    std::function<bool()> isHere;
  };

  // The claim on one transfer; dropping it gives the wish up. One thread at a time.
  class Ticket {
   public:
    Ticket() = default;
    Ticket(Ticket&&) noexcept = default;
    Ticket& operator=(Ticket&& other) noexcept;
    ~Ticket() { Drop(); }

    // Waits no longer than that; whether the transfer is over.
    [[nodiscard]] bool WaitFor(std::chrono::milliseconds patience) const;
    // Whether the file, or the range, is here.
    [[nodiscard]] bool Succeeded() const;
    // What has come of a range, if it is in memory: good for as long as the ticket.
    [[nodiscard]] std::span<const std::byte> Content() const;
    // Where it begins in the file.
    [[nodiscard]] std::uint64_t Offset() const;

   private:
    friend class TransferDesk;
    void Drop();

    std::shared_ptr<TransferDesk> desk;
    std::shared_ptr<IScanner> target;
    std::shared_ptr<Transfer> transfer;
    bool isHere = false;
  };

  // The desk of a target's local copies.
  [[nodiscard]] static std::shared_ptr<TransferDesk> Of(const IScanner& target);

  // Keeps the target for as long as the ticket.
  [[nodiscard]] Ticket Fetch(const std::shared_ptr<IScanner>& target, const Wish& wish);

 private:
  using Key = std::tuple<std::string, std::uint64_t, std::uint64_t>;
  struct Transfer {
    Key key;
    std::uint64_t limit = 0;
    std::shared_ptr<IResult> result;  // null if it couldn't be started
    std::size_t tickets = 0;
    [[nodiscard]] bool IsOver() const;
  };

  void GiveUp(const std::shared_ptr<Transfer>& transfer);

  std::mutex lock;
  std::map<Key, std::shared_ptr<Transfer>> underWay;  // each has tickets
};

}  // namespace qvArchiving
