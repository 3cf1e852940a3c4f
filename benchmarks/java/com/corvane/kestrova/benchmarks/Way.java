package com.corvane.kestrova.benchmarks;

import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import com.corvane.kestrova.engine.tabulo.store.FrameEncoder;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import java.nio.file.Path;
import java.util.function.BiConsumer;

/** The ways to store an order through Java. */
enum Way {
    /** The overload of writeMessage with strings. */
    STRINGS {
        @Override
        void read(Order order, JNITboMessageTableIterator from) {
            order.readStrings(from);
        }

        @Override
        Target open(Path directory) {
            return new OnTable(OrdersTable.open(directory, JNITboMessageTable.MODE_WRITE), Order::storeStrings);
        }
    },
    /** The overload of writeMessage with byte arrays. */
    BYTES {
        @Override
        Target open(Path directory) {
            return new OnTable(OrdersTable.open(directory, JNITboMessageTable.MODE_WRITE), Order::storeBytes);
        }
    },
    /** The overload of writeMessage with a whole frame, which is encoded in Java. */
    FRAMES {
        @Override
        Target open(Path directory) {
            FrameEncoder encoder = new FrameEncoder(OrdersTable.LAYOUT);
            return new OnTable(OrdersTable.open(directory, JNITboMessageTable.MODE_WRITE),
                    (order, table) -> order.storeFrame(encoder, table));
        }
    },
    /** A message store's append(), which numbers the orders itself. */
    APPEND {
        @Override
        Target open(Path directory) {
            return new OnStore(MessageStore.openOrCreate(directory.resolve(OrdersTable.NAME), OrdersTable.LAYOUT));
        }
    };

    private record OnTable(JNITboMessageTable table, BiConsumer<Order, JNITboMessageTable> storing) implements Target {
        @Override
        public void store(Order order) {
            storing.accept(order, table);
        }

        @Override
        public void close() {
            table.close();
        }
    }

    private record OnStore(MessageStore messages) implements Target {
        @Override
        public void store(Order order) {
            order.append(messages);
        }

        @Override
        public void close() {
            messages.close();
        }
    }

    /** Takes the message at which an iterator stands, as this way wants it. */
    void read(Order order, JNITboMessageTableIterator from) {
        order.readBytes(from);
    }

    abstract Target open(Path directory);
}
