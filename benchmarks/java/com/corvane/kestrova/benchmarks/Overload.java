package com.corvane.kestrova.benchmarks;

import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;

/** The two overloads of writeMessage that take a message's parts. */
enum Overload {
    STRINGS {
        @Override
        void read(Order order, JNITboMessageTableIterator from) {
            order.readStrings(from);
        }

        @Override
        void store(Order order, JNITboMessageTable table) {
            order.storeStrings(table);
        }
    },
    BYTES {
        @Override
        void read(Order order, JNITboMessageTableIterator from) {
            order.readBytes(from);
        }

        @Override
        void store(Order order, JNITboMessageTable table) {
            order.storeBytes(table);
        }
    };

    abstract void read(Order order, JNITboMessageTableIterator from);

    abstract void store(Order order, JNITboMessageTable table);
}
