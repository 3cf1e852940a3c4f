package com.corvane.kestrova.examples;

import java.io.IOException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/**
 * A recorded session, ready to be stored.
 *
 * @param name the name of its table
 * @param messages its messages in the order of the recording
 */
record RecordedSession(String name, List<RecordedMessage> messages) {
    private static final List<String> NAMES = List.of("client-day1", "client-day2");

    /** Reads all sessions of the recording. */
    static List<RecordedSession> readAll(Path dataDirectory) throws IOException {
        List<RecordedSession> sessions = new ArrayList<>();
        for (String name : NAMES) {
            List<FixLogLine> lines = FixLogReader.read(dataDirectory.resolve(name + ".fixlog"));
            sessions.add(new RecordedSession(name, prepare(lines)));
        }
        return sessions;
    }

    static List<RecordedMessage> allMessages(List<RecordedSession> sessions) {
        List<RecordedMessage> all = new ArrayList<>();
        sessions.forEach(session -> all.addAll(session.messages()));
        return all;
    }

    private static List<RecordedMessage> prepare(List<FixLogLine> lines) {
        SequenceTracker received = new SequenceTracker();
        List<RecordedMessage> messages = new ArrayList<>(lines.size());
        for (FixLogLine line : lines) {
            FixMessage message = new FixMessage(line.message());
            boolean isOutOfSequence = !line.outgoing() && received.isOutOfSequence(message);
            messages.add(new RecordedMessage(line, message, isOutOfSequence));
        }
        return messages;
    }
}
