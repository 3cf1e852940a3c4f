# Sourced by run: the Debian package, judged and unpacked.
debs=("$packages"/tabulo_*.deb)
deb_root=$work/deb

judged() {
    local options=()
    [[ "$(id -u)" == 0 ]] && options=(--allow-root)
    lintian --fail-on error "${options[@]}" "${debs[0]}" && echo 'without errors'
}
prove "the Debian package is without errors" '^without errors' judged

unpacked() {
    dpkg-deb -x "${debs[0]}" "$deb_root" && "$deb_root/usr/bin/tabulo" help &&
        "$jdk/bin/java" -Dtabulo.tmpdir="$extracted" -cp "$deb_root/usr/share/java/tabulo.jar:$plain" "$main" "$tables"
}
prove "the Debian package, unpacked" "$expected" unpacked
