/** Stores the messages of FIX engines in tables, through a native library that the jar brings along. */
module tabulo {
    exports com.corvane.kestrova.engine.tabulo;
    exports com.corvane.kestrova.engine.tabulo.jni;
    exports com.corvane.kestrova.engine.tabulo.store;
    exports com.corvane.util.log;
}
