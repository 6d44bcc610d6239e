#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pellix/Pellix.h"

/// Deleter of LinkInUse: unpins the link.
struct UnpinLink {
    void operator()(pellix::Pellix* link) const { link->Unpin(); }
};

/// A link in use by a call, or null. The registry owns the link and does not destroy it while a
/// call holds this.
using LinkInUse = std::unique_ptr<pellix::Pellix, UnpinLink>;

/// The open links, one for each attached master, in the order in which they were added.
///
/// The GripperManager and its monitor thread share the registry, because that thread is never
/// joined and may still be adding a master while the manager is destroyed.
///
/// Any thread may call. Every function but GetLink() waits for the lock without a limit.
class LinkRegistry {
public:
    /// @param patience longest time that Close() waits for calls. A call makes at most two
    ///        requests, of 4 s each if the tty accepts no bytes.
    explicit LinkRegistry(std::chrono::milliseconds patience = std::chrono::seconds(9))
        : patience(patience) {}
    LinkRegistry(const LinkRegistry&) = delete;
    LinkRegistry& operator=(const LinkRegistry&) = delete;

    /// Finds the link whose device string is exactly `deviceString`; waits at most 100 ms for the
    /// lock.
    /// @return null if there is none or the lock was not acquired in time (both logged)
    LinkInUse GetLink(const std::string& deviceString);

    /// Requests the ID of a master without a valid one again, which may take 1 s under the lock.
    /// @return device strings of the usable links, in the order in which they were added
    std::vector<std::string> GetGrippers();

    /// Opens and initialises a link on the device node, which may take seconds; the lock is free
    /// meanwhile. If the node already has a link, keeps that one: a second link would take the
    /// first one's replies.
    /// @return 0 if the master was initialised, even if its link could not be listed, and if the
    ///         node already has a link; the result of the request that failed; or -1 if the tty
    ///         cannot be opened or a thread cannot be started
    int AddDevice(const std::string& node);

    /// Stops the link on the device node, if there is one, waits for the calls that use it (at most
    /// one request timeout) and destroys it. The lock is free during that wait, but held while the
    /// link's threads are joined and its tty is closed.
    void RemoveDevice(const std::string& node);

    /// Called when the process ends, after the servers have stopped. Destroys every other link and
    /// accepts no new ones. Waits up to `patience` for calls that still use a link.
    /// @return the lock, still held, so that no later lookup finds a link
    std::unique_lock<std::timed_mutex> Close();

private:
    bool HasLink(const std::string& node);
    void Append(std::unique_ptr<pellix::Pellix> link);
    void Remove(std::size_t position, std::unique_lock<std::timed_mutex>& lock);

    std::timed_mutex mutex;              // guards links and closed; taken before any lock of a link
    std::vector<pellix::Pellix*> links;  // owned; a slot may be null
    const std::chrono::milliseconds patience;
    bool closed = false;
};
