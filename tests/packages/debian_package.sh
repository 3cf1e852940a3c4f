# Sourced by run: the Debian package, judged and unpacked.
debs=("$packages"/tabulo_*.deb)
deb_root=$work/deb

judged() {
    local options=()
    [[ "$(id -u)" == 0 ]] && options=(--allow-root)
    lintian --fail-on error "${options[@]}" "${debs[0]}" && echo 'without errors'
}
prove "the Debian package is without errors" '^without errors' judged

packaged_program() {
    "$jdk/bin/java" -Dtabulo.tmpdir="$extracted" -cp "$deb_root/usr/share/java/tabulo.jar:$plain" "$main" "$tables"
}

unpacked() {
    dpkg-deb -x "${debs[0]}" "$deb_root" && "$deb_root/usr/bin/tabulo" help && packaged_program
}
prove "the Debian package, unpacked" "$expected" unpacked

loaded() {
    local extension
    set -e
    extension=$(find "$deb_root/usr/lib" -name tabulo_sqlite.so)
    local question="SELECT 'messages: ' || count(*) FROM tabulo_messages('$tables/*')"
    packaged_program
    sqlite3 :memory: ".load ${extension%.so}" "$question"
    /usr/bin/python3 - "$extension" "$question" <<'END'
import sqlite3, sys
connection = sqlite3.connect(":memory:")
connection.enable_load_extension(True)
connection.load_extension(sys.argv[1])
print("Python's", *connection.execute(sys.argv[2]).fetchone())
END
}
prove "the SQLite extension of the package, in the shell and in Python" "^Python's messages: [1-9]" loaded
