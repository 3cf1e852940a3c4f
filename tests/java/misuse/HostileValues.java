package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NOT_IMPLEMENTED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NO_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NUMERIC_FIELDS_LIMIT_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STRING_FIELDS_LIMIT_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import com.corvane.kestrova.engine.tabulo.TimestampHolder;
import com.corvane.util.log.ILogger;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;
import java.util.function.Supplier;

/** What no caller should pass, for each type of parameter and each kind of object; a harmless value stands first. */
final class HostileValues {
    private static final String LONGER_THAN_EVERY_BUFFER = "x".repeat(5000);
    private static final int[] MAXIMUM_OF_TAGS = {1, 2, 3, 4, 5, 6, 1, 2, 3, 4, 5, 6, 1, 2, 3, 4, 5, 6, 1, 2, 3, 4,
        5, 6, 1, 2, 3, 4, 5, 6, 1, 2};

    private static final Map<Class<?>, List<Argument>> BY_TYPE = Map.of(
            int.class, list(1, 0, -1, 2, 3, 17, 1000, 1001, Integer.MAX_VALUE, Integer.MAX_VALUE - 7, 1 << 30,
                    Integer.MIN_VALUE, Integer.MIN_VALUE + 1),
            long.class, list(1L, 0L, -1L, Long.MAX_VALUE, Long.MIN_VALUE),
            char.class, list('D', '\0', '\uFFFF'),
            boolean.class, list(false, true),
            String.class, texts(),
            String[].class, textArrays(),
            byte[].class, List.of(bytes("no bytes", 0), bytes("garbage", 100), bytes("a lot of garbage", 5000),
                    Argument.of("null", null)),
            int[].class, List.of(Argument.of("{1, -1}", new int[] {1, -1}), Argument.of("{}", new int[0]),
                    Argument.of("null", null), Argument.of("{2, 2, 2}", new int[] {2, 2, 2}),
                    Argument.of("the extremes", new int[] {Integer.MIN_VALUE, Integer.MAX_VALUE}),
                    Argument.of("{1}", new int[] {1}), Argument.of("32 tags", MAXIMUM_OF_TAGS),
                    Argument.of("33 tags", Arrays.copyOf(MAXIMUM_OF_TAGS, 33)),
                    Argument.of("1001 numbers", new int[1001])),
            long[].class, List.of(Argument.of("{5, 6}", new long[] {5, 6}), Argument.of("{}", new long[0]),
                    Argument.of("null", null), Argument.of("the extremes", new long[] {Long.MIN_VALUE, Long.MAX_VALUE}),
                    Argument.of("16 longs", new long[16]), Argument.of("33 longs", new long[33])),
            double[].class, List.of(Argument.of("{1.5}", new double[] {1.5}), Argument.of("{}", new double[0]),
                    Argument.of("null", null), Argument.of("three doubles", new double[3]),
                    Argument.of("not numbers", new double[] {Double.NaN, Double.NEGATIVE_INFINITY}),
                    Argument.of("16 doubles", new double[16]), Argument.of("17 doubles", new double[17])));

    private HostileValues() {
    }

    private static List<Argument> list(Object... values) {
        return Arrays.stream(values).map(Argument::of).toList();
    }

    private static Argument bytes(String name, int length) {
        byte[] bytes = new byte[length];
        Arrays.fill(bytes, (byte) 0x55);
        return Argument.of(name, bytes);
    }

    private static List<Argument> texts() {
        return List.of(Argument.of("a text", "AE"), Argument.of("null", null), Argument.of("the empty text", ""),
                Argument.of("NULs", "\0\0"), Argument.of("half a surrogate pair", "\uDC00\uD800"),
                Argument.of("a long text", LONGER_THAN_EVERY_BUFFER), Argument.of("formats", "%n%s%d\n"));
    }

    private static Argument textArray(int length) {
        return Argument.of(length + " texts", Provider.names("t", length));
    }

    private static List<Argument> textArrays() {
        return List.of(textArray(2), textArray(0), textArray(1), textArray(3), textArray(12), textArray(13),
                textArray(1000), Argument.of("null", null), Argument.of("two nulls", new String[2]));
    }

    /** The values of a plain type; never null. */
    static List<Argument> of(Class<?> type) {
        List<Argument> values = BY_TYPE.get(type);
        if (values == null) {
            throw new AssertionError("no hostile values are known for " + type);
        }
        return values;
    }

    /** Objects of classes that have none of the wanted methods. */
    private static List<Argument> wrongObjects(int ofNull, int ofWrongClass) {
        return List.of(Argument.of("null", null).withCode(ofNull),
                Argument.object("a plain object", ofWrongClass, Object::new),
                Argument.object("a text", ofWrongClass, () -> "a text"),
                Argument.object("an array", ofWrongClass, () -> new int[3]),
                Argument.object("a class", ofWrongClass, () -> HostileValues.class),
                Argument.object("an exception", ofWrongClass, () -> new IllegalStateException("never thrown")));
    }

    private static List<Argument> joined(List<Argument> first, List<Argument> rest) {
        List<Argument> all = new ArrayList<>(first);
        all.addAll(rest);
        return all;
    }

    static List<Argument> listeners() {
        IKSVTboMessageListener throwing = (count, timestamps, wires, others) -> {
            throw new OnPurpose("a listener");
        };
        IKSVTboMessageListener failing = (count, timestamps, wires, others) -> {
            throw new StackOverflowError("thrown by a listener on purpose");
        };
        IKSVTboMessageListener meddling = (count, timestamps, wires, others) -> {
            Arrays.fill(timestamps, -1);
            Arrays.fill(wires, null);
            return Integer.MIN_VALUE;
        };
        List<Argument> own = List.of(Argument.object("a listener", NO_ERROR, RecordingListener::new),
                Argument.object("a listener that meddles", NO_ERROR, () -> meddling),
                Argument.object("a listener that throws", JNI_ERROR, () -> throwing),
                Argument.object("a listener that throws an error", JNI_ERROR, () -> failing));
        return joined(own, wrongObjects(NULL_POINTER_ERROR, NULL_POINTER_ERROR));
    }

    /** A holder whose method throws. */
    static final class ThrowingHolder {
        public void setValue(long value) {
            throw new OnPurpose("a holder");
        }
    }

    /** Holders; those of a wrong class count only when there is something to hold. */
    static List<Argument> holders() {
        List<Argument> own = List.of(Argument.object("a holder", NO_ERROR, TimestampHolder::new),
                Argument.object("a holder that throws", JNI_ERROR, ThrowingHolder::new));
        return joined(own, wrongObjects(NO_ERROR, JNI_ERROR));
    }

    /** Facilities; no error of theirs reaches Java. */
    static List<Argument> facilities() {
        Supplier<?> throwing = () -> new RecordingFacility() {
            @Override
            public ILogger warning() {
                throw new OnPurpose("a facility");
            }
        };
        Supplier<?> without = () -> new RecordingFacility() {
            @Override
            public ILogger error() {
                return null;
            }
        };
        List<Argument> own = List.of(Argument.object("a facility", NO_ERROR, RecordingFacility::new),
                Argument.object("a facility that throws", NO_ERROR, throwing),
                Argument.object("a facility without a logger", NO_ERROR, without));
        return joined(own, wrongObjects(NO_ERROR, NO_ERROR));
    }

    private static Argument conditions(String name, int code, Consumer<RawConditions> settings) {
        return Argument.object(name, code, () -> RawConditions.of(settings));
    }

    static List<Argument> conditions() {
        List<Argument> own = new ArrayList<>(List.of(conditions("no condition", NO_ERROR, c -> { }),
                conditions("extreme ranges", NO_ERROR, c -> {
                    c.backward = true;
                    c.beginSeqNum = Integer.MAX_VALUE;
                    c.endSeqNum = Integer.MIN_VALUE;
                    c.startIds = new int[] {Integer.MIN_VALUE, Integer.MAX_VALUE, -1, 0};
                    c.endIds = new int[] {0};
                    c.startingTime = Long.MAX_VALUE;
                    c.endingTime = Long.MIN_VALUE;
                }),
                conditions("a null among the types", NULL_POINTER_ERROR, c -> c.excluded = new String[] {"0", null}),
                conditions("filters of no field", NO_ERROR, c -> {
                    c.stringIds = new int[] {-1, Integer.MIN_VALUE, Integer.MAX_VALUE};
                    c.andNumeric(Integer.MAX_VALUE, 1, filter -> filter.doubleValues = new double[] {Double.NaN});
                    c.andNumeric(-1, 2, filter -> filter.longValues = new long[] {Long.MIN_VALUE});
                }),
                conditions("a null among the values", NULL_POINTER_ERROR,
                        c -> c.andString(2, filter -> filter.values = new String[1])),
                conditions("more minimums than maximums", WRONG_PARAMETER_ERROR, c -> c.andString(2, filter -> {
                    filter.minimums = new String[] {"a", "b"};
                    filter.maximums = new String[] {"c"};
                })),
                conditions("a filter of an unknown type", NOT_IMPLEMENTED_ERROR,
                        c -> c.andNumeric(0, Integer.MIN_VALUE, filter -> { }))));
        for (String getter : List.of("getIterateBackward", "getEndSeqNum", "getStringFieldsIds", "getStartMessageIds",
                "getEndMessageIds", "getStartMessageId", "getExcludeMsgTypes", "getStartingTime", "getIsPossDupFlag",
                "getNumericFieldsIds")) {
            own.add(conditions(getter + " throws", JNI_ERROR, c -> c.throwing = getter));
        }
        return joined(own, wrongObjects(NULL_POINTER_ERROR, JNI_ERROR));
    }

    private static Argument provider(String name, int code, Supplier<Provider> fresh, Consumer<Provider> settings) {
        return Argument.object(name, code, () -> {
            Provider provider = fresh.get();
            settings.accept(provider);
            return provider;
        });
    }

    /** Providers; `fresh` names a table that there is not yet each time. */
    static List<Argument> providers(Supplier<Provider> fresh) {
        List<Argument> own = new ArrayList<>(List.of(provider("a provider", NO_ERROR, fresh, p -> { }),
                provider("a provider without a name", NULL_POINTER_ERROR, fresh, p -> p.tableName = null),
                provider("a provider without a root", NULL_POINTER_ERROR, fresh, p -> p.dbRoot = null),
                provider("a null replica", NULL_POINTER_ERROR, fresh, p -> p.replicas = new String[1]),
                provider("a null string field", NULL_POINTER_ERROR, fresh, p -> p.strings = new String[1]),
                provider("a null numeric field", NULL_POINTER_ERROR, fresh, p -> p.numerics = new String[1]),
                provider("13 string fields", STRING_FIELDS_LIMIT_ERROR, fresh,
                        p -> p.strings = Provider.names("s", 13)),
                provider("17 numbers", NUMERIC_FIELDS_LIMIT_ERROR, fresh, p -> p.numerics = Provider.names("n", 17)),
                provider("33 tags", INDEX_OUT_OF_BOUNDS_ERROR, fresh, p -> p.tags = new int[33]),
                provider("1000 replicas", NO_ERROR, fresh, p -> p.replicas = Provider.names("r", 1000))));
        for (int i = 0; i < 6; ++i) {
            int call = i;
            own.add(Argument.object("a provider whose getter " + call + " throws", JNI_ERROR,
                    () -> new ThrowingProvider(fresh.get(), call)));
        }
        return joined(own, wrongObjects(JNI_ERROR, JNI_ERROR));
    }

    /** One of its six methods throws. */
    static final class ThrowingProvider {
        private final Provider inner;
        private final int throwing;

        ThrowingProvider(Provider inner, int throwing) {
            this.inner = inner;
            this.throwing = throwing;
        }

        private <T> T answer(int method, T value) {
            if (method == throwing) {
                throw new OnPurpose("a provider");
            }
            return value;
        }

        public String getTableName() {
            return answer(0, inner.tableName);
        }

        public String getDbRoot() {
            return answer(1, inner.dbRoot);
        }

        public String[] getReplicasDbRoots() {
            return answer(2, inner.replicas);
        }

        public String[] getStringFieldsNames() {
            return answer(3, inner.strings);
        }

        public String[] getNumericFieldsNames() {
            return answer(4, inner.numerics);
        }

        public int[] getSessionInfoTableTags() {
            return answer(5, inner.tags);
        }
    }
}
