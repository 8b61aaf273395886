#pragma once

#include <functional>

namespace oru::stream {

/// Starts the transport library, at the first call, and keeps it until the process ends. Threads: any.
void startTransport();
/// False from the end of the process on: no socket may be made or used any more. Threads: any.
[[nodiscard]] bool isTransportAlive();

/// What an owner of sockets or of threads that use them holds, as its first member. The transport library ends inside
/// exit(), where cameras of static lifetime that are older than the first stream still live. So whatever then holds a
/// lease is ended first. Threads: any.
class TransportLease {
public:
    /// `endOwner` joins the owner's threads and closes its sockets for good. It runs once at most, inside exit(),
    /// beside what other threads do with the owner; it must neither make nor destroy a lease.
    explicit TransportLease(std::function<void()> endOwner);
    ~TransportLease();
    TransportLease(const TransportLease&) = delete;
    TransportLease& operator=(const TransportLease&) = delete;

    /// First of all in the owner's destructor: `endOwner` has run or never will. The library waits for the rest.
    void retire();

private:
    friend class Transport;

    std::function<void()> end;
    bool retired = false;
};

}  // namespace oru::stream
