# Sourced by run: the jar in every way that a program in Java has it, on JDK 17 and on the newest that the machine has.
main=com.example.trades.Trades
plain=$shared/plain    # the classes for a class path
module=$shared/module  # and as a module
sources=$here/java/trades
"$jdk/bin/javac" --release 17 -cp "$jar" -d "$plain" "$sources/com/example/trades/Trades.java" || failed=1
"$jdk/bin/javac" --release 17 -p "$jar" -d "$module" "$sources/module-info.java" "$sources/com/example/trades/Trades.java" ||
    failed=1
chmod -R a+rX "$shared"
extracted=$shared/extracted
mkdir -m 777 "$extracted"

# The number of a JDK's version.
java_version() {
    "$1/bin/java" -XshowSettings:properties -version 2>&1 | sed -n 's/^ *java.specification.version = //p'
}

newest=$jdk
for home in /usr/lib/jvm/* "${JAVA_HOME-}"; do
    if [[ -x "$home/bin/jlink" && "$(java_version "$home")" -gt "$(java_version "$newest")" ]]; then
        newest=$home
    fi
done

class_path_consumer() {
    without_warnings "$java/bin/java" "${of_all[@]}" -Dtabulo.tmpdir="$extracted" -cp "$jar:$plain" "$main" "$tables"
}
module_path_consumer() {
    without_warnings "$java/bin/java" "${of_module[@]}" -Dtabulo.tmpdir="$extracted" -p "$jar:$module" \
        -m "com.example.trades/$main" "$tables"
}
image_consumer() {
    local image=$work/image-$number
    "$java/bin/jlink" -p "$jar:$module" --add-modules com.example.trades --output "$image" &&
        without_warnings "$image/bin/java" "${of_module[@]}" -Dtabulo.tmpdir="$extracted" -m "com.example.trades/$main" \
            "$tables"
}
fat_jar_consumer() {
    local fat=$work/fat
    rm -rf "$fat"
    mkdir -p "$fat" && cp -r "$plain/." "$fat" && (cd "$fat" && "$java/bin/jar" --extract --file "$jar") &&
        rm "$fat/module-info.class" &&
        "$java/bin/jar" --create --file "$work/fat.jar" --main-class "$main" -C "$fat" . &&
        without_warnings "$java/bin/java" "${of_all[@]}" -Dtabulo.tmpdir="$extracted" -jar "$work/fat.jar" "$tables"
}

homes=("$jdk")
if [[ "$newest" == "$jdk" ]]; then
    left_out "the newest JDK" "the machine has none but $(java_version "$jdk")"
else
    homes+=("$newest")
fi
for java in "${homes[@]}"; do
    number=$(java_version "$java")
    of_all=()
    of_module=()
    if [[ "$number" -ge 24 ]]; then
        of_all=(--enable-native-access=ALL-UNNAMED)
        of_module=(--enable-native-access=tabulo)
    fi
    prove "the class path, JDK $number" "$expected" class_path_consumer
    prove "the module path, JDK $number" "$expected" module_path_consumer
    prove "an image of jlink, JDK $number" "$expected" image_consumer
    prove "a jar of everything, JDK $number" "$expected" fat_jar_consumer
done

maven_consumer() {
    local project=$work/maven
    rm -rf "$project"
    mkdir -p "$project/src/main/java" && cp "$here/maven/pom.xml" "$project" &&
        cp -r "$sources/com" "$project/src/main/java" && cd "$project" &&
        JAVA_HOME=$jdk PATH=$jdk/bin:$PATH mvn -o -B -Daether.offline.protocols=file "-Dmaven.repo.local=$work/maven-local" \
            "-Dpackages=$packages" "-Dtabulo.version=$version" "-Dtables=$tables" compile exec:exec
}
prove "Maven, offline" "$expected" maven_consumer

# Places and users that make it hard.
java=$jdk
refused_without_execution() {
    unshare -m sh -c 'mount -t tmpfs -o noexec none "$1" && shift && exec "$@"' sh "$extracted" \
        "$java/bin/java" -Djava.io.tmpdir="$extracted" -cp "$jar:$plain" "$main" "$tables"
    [[ $? == 1 ]]
}
elsewhere_without_execution() {
    unshare -m sh -c 'mount -t tmpfs -o noexec none "$1" && shift && exec "$@"' sh "$extracted" \
        "$java/bin/java" -Djava.io.tmpdir="$extracted" -Dtabulo.tmpdir="$shared" -cp "$jar:$plain" "$main" "$tables"
}
if unshare -m true 2>/dev/null; then
    prove "a temporary directory without execution is told" 'noexec.*-Dtabulo.tmpdir' refused_without_execution
    prove "a temporary directory without execution, and tabulo.tmpdir" "$expected" elsewhere_without_execution
else
    left_out "a temporary directory without execution" "only root may mount one"
fi

as_nobody() {
    setpriv --reuid=65534 --regid=65534 --clear-groups "$java/bin/java" -Dtabulo.tmpdir="$extracted" -cp "$jar:$plain" \
        "$main" "$tables"
}
if [[ "$(id -u)" == 0 ]]; then
    prove "another user, beside what root has extracted" "$expected" as_nobody
else
    left_out "another user" "only root can become one"
fi
read_only_directory() {
    local place=$shared/read-only
    mkdir -p "$place" && chmod 555 "$place" && cd "$place" || return 1
    if [[ "$(id -u)" == 0 ]]; then
        as_nobody
    else
        "$java/bin/java" -Dtabulo.tmpdir="$extracted" -cp "$jar:$plain" "$main" "$tables"
    fi
    [[ -z "$(ls -A "$place")" ]]
}
prove "a working directory that cannot be written" "$expected" read_only_directory
