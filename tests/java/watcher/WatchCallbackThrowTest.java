package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.List;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** A watch callback that destroys its watcher and throws: the watch ends with the error, not with a stop. */
class WatchCallbackThrowTest extends OnWatchedTables {
    /** A call without further messages, and one with a full batch. */
    @ParameterizedTest
    @ValueSource(ints = {0, 3, 1001})
    void isAJniErrorAlsoWhenItHasDestroyedItsWatcher(int messages) {
        long writer = openForWriting();
        writeNumbered(writer, 1, messages);
        for (boolean compact : new boolean[] {false, true}) {
            long watcher = WatcherNatives.initialize(writer);
            CompactRecorder recorder = new CompactRecorder((call, count) -> destroyAndThrow(watcher));
            RecordingListener listener = new RecordingListener(call -> destroyAndThrow(watcher));
            facility.pieces.clear();
            assertFails(JNI_ERROR, () -> {
                if (compact) {
                    WatcherNatives.watchCompact(watcher, 1, new int[] {1}, recorder);
                } else {
                    WatcherNatives.watch(watcher, 1, new int[] {1}, listener);
                }
            });
            assertEquals(List.of(Math.min(messages, 1000)), compact ? recorder.counts : listener.counts());
            assertEquals(startLine("1 ") + errorLine(JNI_ERROR, messages == 0 ? -1 : messages), facility.warnings());
        }
    }

    private static int destroyAndThrow(long watcher) {
        WatcherNatives.uninitialize(watcher);
        throw new OnPurpose("a watch callback that has destroyed its watcher");
    }
}
