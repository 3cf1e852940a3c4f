package com.corvane.kestrova.engine.tabulo.jni;

import java.util.function.Supplier;

/**
 * One value to call an entry point with.
 *
 * @param name what it is, for the sentence of a failure
 * @param code for an object: the error that it alone must lead to, 0 for none
 * @param make makes the value anew for each call
 */
record Argument(String name, int code, Supplier<?> make) {
    static Argument of(String name, Object value) {
        return new Argument(name, 0, () -> value);
    }

    static Argument of(Object value) {
        return of(String.valueOf(value), value);
    }

    Argument withCode(int wanted) {
        return new Argument(name, wanted, make);
    }

    static Argument object(String name, int code, Supplier<?> make) {
        return new Argument(name, code, make);
    }
}
