package com.corvane.kestrova.examples;

/**
 * One line of a recorded session.
 *
 * @param timestamp when the engine sent or took the message, in microseconds since 1970-01-01 UTC
 * @param outgoing whether the engine sent it
 * @param message the message's bytes
 */
record FixLogLine(long timestamp, boolean outgoing, byte[] message) {
}
