#include "archiving/TransferDesk.h"

#include <utility>

namespace qvArchiving {

using std::chrono::milliseconds;

bool TransferDesk::Transfer::IsOver() const {
  return result == nullptr || result->WaitFor(milliseconds(0));
}

std::shared_ptr<TransferDesk> TransferDesk::Of(const IScanner& target) {
  static std::mutex guarding;
  static std::map<std::string, std::weak_ptr<TransferDesk>> desks;
  std::string root = PropertyOr(target.Properties(), property::kFullyMountedPath);
  while (root.ends_with('/') || root.ends_with('\\')) root.pop_back();
  const std::lock_guard guard(guarding);
  std::erase_if(desks, [](const auto& entry) { return entry.second.expired(); });
  std::weak_ptr<TransferDesk>& entry = desks[root];
  auto desk = entry.lock();
  if (desk == nullptr) {
    desk = std::make_shared<TransferDesk>();
    entry = desk;
  }
  return desk;
}

TransferDesk::Ticket TransferDesk::Fetch(const std::shared_ptr<IScanner>& target,
                                         const Wish& wish) {
  Ticket ticket;
  Key key(wish.path, wish.offset, wish.bytes);
  const std::lock_guard guard(lock);
  const auto found = underWay.find(key);
  if (found != underWay.end() && !found->second->IsOver()) {
    ticket.transfer = found->second;
  } else if (wish.isHere && wish.isHere()) {
    ticket.isHere = true;
    return ticket;
  } else {
    ticket.transfer = std::make_shared<Transfer>();
    ticket.transfer->key = key;
    ticket.transfer->limit = wish.limit;
    ticket.transfer->result =
        target->Download(wish.path, wish.path, static_cast<std::int64_t>(wish.offset),
                         static_cast<std::int64_t>(wish.bytes));
    underWay[key] = ticket.transfer;
  }
  ++ticket.transfer->tickets;
  ticket.desk = shared_from_this();
  ticket.target = target;
  return ticket;
}

void TransferDesk::GiveUp(const std::shared_ptr<Transfer>& transfer) {
  {
    const std::lock_guard guard(lock);
    if (--transfer->tickets != 0) return;
    const auto found = underWay.find(transfer->key);
    if (found != underWay.end() && found->second == transfer) underWay.erase(found);
  }
  if (transfer->result == nullptr) return;
  if (!transfer->IsOver()) transfer->result->Cancel();
  transfer->result->ReleaseHandle();
}

TransferDesk::Ticket& TransferDesk::Ticket::operator=(Ticket&& other) noexcept {
  if (this == &other) return *this;
  Drop();
  desk = std::move(other.desk);
  target = std::move(other.target);
  transfer = std::move(other.transfer);
  isHere = other.isHere;
  return *this;
}

void TransferDesk::Ticket::Drop() {
  if (transfer != nullptr) desk->GiveUp(transfer);
  transfer.reset();
  target.reset();
  desk.reset();
}

bool TransferDesk::Ticket::WaitFor(milliseconds patience) const {
  if (transfer == nullptr || transfer->result == nullptr) return true;
  if (transfer->result->WaitFor(patience)) return true;
  if (transfer->result->GetBytesTotalSize() > transfer->limit ||
      transfer->result->GetBytesTransferred() > transfer->limit) {
    transfer->result->Cancel();
  }
  return false;
}

bool TransferDesk::Ticket::Succeeded() const {
  if (transfer == nullptr) return isHere;
  return transfer->result != nullptr && transfer->result->GetStatus() == TransferStatus::COMPLETED;
}

std::span<const std::byte> TransferDesk::Ticket::Content() const {
  if (!Succeeded() || transfer == nullptr) return {};
  return transfer->result->Content();
}

std::uint64_t TransferDesk::Ticket::Offset() const {
  return transfer == nullptr ? 0 : std::get<1>(transfer->key);
}

}  // namespace qvArchiving
