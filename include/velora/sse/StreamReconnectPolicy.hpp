#pragma once
// Opt-in reconnection of a subscription stream: exponential backoff with jitter, a fresh start
// after a stable connection, resumption with "Last-Event-Id", and an idle watchdog.

#include <chrono>
#include <functional>

namespace velora {

/// How an SSEManager reconnects when opted in: after each ending but a clean 200 end, following a
/// backoff, with a new event source that resumes from the last event id. Disabled by default.
struct StreamReconnectPolicy {
  /// Off by default. The platform's own rule is narrower: a stream is retried after the server's
  /// retry time only when it never got its response, always from the beginning, and a stream that
  /// has gone quiet is the application's to restart (its check events tell it when). Applications
  /// written against that rule restart streams themselves; reconnecting behind their back as well
  /// would open a second subscription, and resuming needs a server that honours Last-Event-Id.
  bool enabled = false;
  /// The delay before the first reconnect after a stable connection.
  std::chrono::milliseconds initialDelay{1000};
  /// Each failed attempt in a row multiplies the delay by this (at least 1).
  double multiplier = 2.0;
  /// The delay before jitter never exceeds this.
  std::chrono::milliseconds maxDelay{60000};
  /// Each delay is drawn uniformly from ±jitter of itself (0.2: 80 % to 120 %), so that streams
  /// cut at the same moment do not all come back at the same moment. Clamped to [0, 1].
  double jitter = 0.2;
  /// A connection that stayed open this long counts as stable: the next delay is initialDelay.
  std::chrono::milliseconds resetAfter{30000};
  /// While open, no byte at all (not even a "check" keep-alive) for this long makes the stream
  /// reconnect; it is noticed within a quarter of this time. Zero: no watchdog. The facade's
  /// streams send checks at most every 60 s, so the default leaves room for two missed checks.
  std::chrono::milliseconds idleTimeout{150000};
  /// Uniform numbers in [0, 1) for the jitter; empty: a generator seeded from std::random_device.
  std::function<double()> random;

  /// The delay before reconnect number `attempt` (0 after a stable connection) for a uniform
  /// `draw` in [0, 1): min(maxDelay, initialDelay * multiplier^attempt) * (1 - jitter + 2 * jitter * draw).
  std::chrono::milliseconds delay(int attempt, double draw) const;
};

}  // namespace velora
