// Registers a cloned host with the web service as a new host of the same account.
#pragma once

namespace havrel {

/// Stateless: what is sent is read from the host preferences, and what comes back is stored there. Each request blocks
/// for up to 60 seconds; failures show in the logs only. Thread-safe.
class HVLCloneHostRegistration {
  public:
    /// `configureClonedHost`, and `updateHostInfo` if that returned true.
    void registerNewHostForClone() const;
    /// Asks for a new host token and proxy topic and stores them; any answer but a success clears both, and one that
    /// can't be stored (`storableMember`) is cleared. False only if the service refused the host description: true
    /// also when it could not be reached.
    bool configureClonedHost() const;
    /// Publishes the host description under the new token.
    void updateHostInfo() const;
};

} // namespace havrel
