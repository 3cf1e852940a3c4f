package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.UniformIds;
import java.util.ArrayList;
import java.util.List;

/**
 * What the process that is killed stores: the recorded sessions over and over, a message of each in turn, numbered over
 * all of them. Whoever knows how many messages were acknowledged knows what each session's tables must hold.
 */
final class CrashSessions {
    private static final String PREFIX = "killed-";

    private final TableDirectory tables;
    private final List<String> names = new ArrayList<>();
    private final List<MessageStream> streams = new ArrayList<>();
    private final UniformIds ids = new UniformIds();

    CrashSessions(TableDirectory tables, List<RecordedSession> sessions) {
        this.tables = tables;
        for (RecordedSession session : sessions) {
            names.add(PREFIX + session.name());
            streams.add(new MessageStream(session.messages(), streams.size() + 1, sessions.size()));
        }
    }

    int count() {
        return streams.size();
    }

    String name(int session) {
        return names.get(session);
    }

    MessageStream stream(int session) {
        return streams.get(session);
    }

    SessionStore open(int session) {
        return SessionStore.openWriter(tables, name(session), stream(session), ids);
    }

    /** How many of the first messages of all sessions belong to one of them. */
    int share(int session, int messages) {
        return (messages + count() - 1 - session) / count();
    }
}
