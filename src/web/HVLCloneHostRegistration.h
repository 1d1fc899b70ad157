// Registers a cloned host with the web service as a new host of the same account.
#pragma once

namespace havrel {

/// Stateless: what is sent and what comes back is in the host preferences. Each step blocks for up to the default
/// time-out, and tells its outcome to the logs alone.
class HVLCloneHostRegistration {
  public:
    /// Both steps below, the second only when the first says so.
    void registerNewHostForClone() const;
    /// Asks for a new host token and proxy topic and stores them; any answer but a success clears both. False when
    /// the service refused the host description, true otherwise, even when it could not be reached.
    bool configureClonedHost() const;
    /// Publishes the host description under the new token.
    void updateHostInfo() const;
};

} // namespace havrel
