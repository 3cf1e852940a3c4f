package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import javax.tools.ToolProvider;

/** Java classes of a host that knows the library but none of our Java side; compiled by the tests. */
final class HostClasses {
    private static final String PACKAGE = "com.corvane.kestrova.engine.tabulo.jni";

    /** Native methods of an instance where ours are static, and only those that this host needs. */
    static final String TABLE = """
            package com.corvane.kestrova.engine.tabulo.jni;
            public class JNITboMessageTable {
                public native long initializeNative(Object configProvider, int mode);
                public native void uninitializeNative(long handle);
                public native void closeNative(long handle);
                protected native void writeMessage(long handle, int uniformId, int seqNum, int prevSeqNum,
                        int connMsgId, long timestamp, char msgTypeChar, String msgType, boolean possDup,
                        boolean outOfSequence, String text0, String text1, String text2, String text3,
                        String[] strings, double[] numbers);
                native void writeMessage(long handle, byte[] bytes, int offset, int length);
                public native void readMessages(long handle, int[] ids, int count, Object listener);
                public static native int getLastMessageId(long handle, int base);
                public native int getLastGoodMsgSeqNum(long handle, long since, Object holder);
            }
            """;

    static final String LOADER = """
            package com.corvane.kestrova.engine.tabulo.jni;
            public class JNITboLibLoader {
                public native void initLibrary();
                public native void setLogFacility(Object facility);
            }
            """;

    /** A checked exception, and no JNITboErrorCodes beside it. */
    static final String EXCEPTION = """
            package com.corvane.kestrova.engine.tabulo.jni;
            public class JNITboException extends Exception {
                public JNITboException(String message) {
                    super(message);
                }
                private static JNITboException createUnderlyingError(int code, String message) {
                    return new JNITboException(code + ": " + message);
                }
            }
            """;

    /** A class where ours is an interface. */
    static final String LISTENER = """
            package com.corvane.kestrova.engine.tabulo;
            public abstract class IKSVTboMessageListener {
                protected abstract int onGetMessages(int count, long[] times, byte[][] wires, byte[][] others);
            }
            """;

    static final String FACILITY = """
            package com.corvane.util.log;
            public interface ILogFacility {
                ILogger debug();
                ILogger info();
                ILogger warning();
                ILogger error();
            }
            """;

    static final String FACILITY_WITHOUT_WARNING = """
            package com.corvane.util.log;
            public interface ILogFacility {
                ILogger debug();
                ILogger info();
                ILogger error();
            }
            """;

    static final String LOGGER = """
            package com.corvane.util.log;
            public abstract class ILogger {
                public abstract void write(int level, Object text);
            }
            """;

    /** The six methods with all kinds of access. */
    static final String PROVIDER = """
            class HostProvider {
                private String getTableName() {
                    return "host";
                }
                private String getDbRoot() {
                    return System.getProperty("user.dir") + "/";
                }
                String[] getReplicasDbRoots() {
                    return null;
                }
                protected String[] getStringFieldsNames() {
                    return new String[] {"Symbol"};
                }
                public String[] getNumericFieldsNames() {
                    return null;
                }
                public int[] getSessionInfoTableTags() {
                    return null;
                }
            }
            """;

    private HostClasses() {
    }

    static String exceptionWhoseFactory(String body) {
        return "package " + PACKAGE + "; public class JNITboException extends Exception {" + body + "}";
    }

    /** Compiles sources into a directory; further arguments go to the compiler. */
    static void compile(Path directory, List<String> options, String... sources) throws IOException {
        List<String> arguments = new ArrayList<>(options);
        arguments.addAll(List.of("-nowarn", "-proc:none", "-encoding", "UTF-8", "-d", directory.toString()));
        for (int i = 0; i < sources.length; ++i) {
            String name = sources[i].replaceAll("(?s).*?\\b(?:class|interface) (\\w+).*", "$1");
            Path file = Files.createDirectories(directory.resolve("source" + i)).resolve(name + ".java");
            Files.writeString(file, sources[i]);
            arguments.add(file.toString());
        }
        int result = ToolProvider.getSystemJavaCompiler().run(null, null, null, arguments.toArray(new String[0]));
        if (result != 0) {
            throw new AssertionError("the host's classes do not compile");
        }
    }
}
