package com.corvane.kestrova.engine.tabulo.jni;

import com.corvane.kestrova.engine.tabulo.store.Append;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.TabuloException;
import java.nio.file.Path;

/** Stores messages over the end of a block and stores each again that could not be; prints how often that was. */
final class RefusedWritesProgram {
    static final int MESSAGES = 1010;
    private static final int MOST_FAILURES = 50;

    private RefusedWritesProgram() {
    }

    /** Argument: the table. */
    public static void main(String[] arguments) {
        OnStores.loadQuietly();
        int failures = 0;
        try (MessageStore store = MessageStore.openOrCreate(Path.of(arguments[0]), OnStores.ORDERS)) {
            for (int number = 1; number <= MESSAGES; ++number) {
                Append message = OnStores.numbered(store, number);
                for (boolean isStored = false; !isStored;) {
                    try {
                        message.store();
                        isStored = true;
                    } catch (TabuloException refused) {
                        if (++failures == MOST_FAILURES) {
                            throw refused;
                        }
                    }
                }
            }
        }
        System.out.println(failures);
    }
}
