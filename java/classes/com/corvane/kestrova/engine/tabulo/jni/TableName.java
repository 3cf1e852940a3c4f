package com.corvane.kestrova.engine.tabulo.jni;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.lang.reflect.Method;
import java.util.List;

/**
 * What a peer knows of its table besides the handle, for its errors, its text and its checks.
 *
 * @param table the table's name, or null when the provider does not say it to us
 * @param path path of the table's file, or null
 * @param fields the configuration that the table was opened with, or null for another kind of provider
 */
record TableName(String table, String path, TableConfiguration fields) {
    static final TableName UNKNOWN = new TableName(null, null, null);

    /** Of a configuration, or of any other provider that lets itself be asked once more. */
    static TableName of(Object configProvider) {
        if (configProvider instanceof TableConfiguration configuration) {
            return new TableName(configuration.tableName(),
                    pathOf(configuration.dbRoot(), configuration.tableName()), configuration);
        }
        String name = ask(configProvider, "getTableName");
        return new TableName(name, pathOf(ask(configProvider, "getDbRoot"), name), null);
    }

    /** Of all tables of a watcher, which is none in particular unless there is but one. */
    static TableName ofAll(List<TableName> names) {
        return names.size() == 1 ? names.get(0) : UNKNOWN;
    }

    /** Refuses a number of texts that is not that of the configured fields, as far as these are known. */
    void refuseOtherCount(int texts) {
        if (fields != null && texts != fields.stringFieldsNames().size()) {
            throw JNITboException.createUnderlyingError(JNITboErrorCodes.STRING_FIELDS_COUNT_MISMATCH_ERROR,
                    "Number of string fields does not match number of fields stored in table's configuration");
        }
    }

    /** As the library joins them. */
    private static String pathOf(String root, String name) {
        if (root == null || name == null) {
            return null;
        }
        boolean endsWithSeparator = root.length() > 1 && (root.endsWith("/") || root.endsWith("\\"));
        return root + (endsWithSeparator ? "" : "\\") + name;
    }

    private static String ask(Object provider, String getter) {
        if (provider == null) {
            return null;
        }
        try {
            Method method = provider.getClass().getMethod(getter);
            return method.invoke(provider) instanceof String text ? text : null;
        } catch (ReflectiveOperationException | RuntimeException notForUs) {
            return null;  // the library may ask what we may not
        }
    }

    @Override
    public String toString() {
        return table == null ? "of unknown name" : path == null ? table : table + " (" + path + ")";
    }
}
