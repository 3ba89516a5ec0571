#!/bin/bash
# packages.sh BUILD - packs a build and installs its packages in an empty root: there the
# programs run, and the README's host and the example host are built and make pages; and
# from there the packages go without a trace. The recipes are looked at as well.
set -euo pipefail
build=$(realpath "$1")
tests=$(dirname "$(realpath "$0")")
packaging=$tests/../packaging
work=$(mktemp -d)
trap 'wait; rm -rf "$work"' EXIT
root=$work/root
PATH=$PATH:/usr/sbin:/sbin # dpkg looks for ldconfig
failed=0

# check WHAT EXPECTED GOT
check() {
    [[ $2 == "$3" ]] && return
    printf '%s\n  expected: %s\n  got:      %s\n' "$@" >&2
    failed=1
}

# Debian's packages that ours need are told to be there as they are on this machine, so
# that dpkg looks at the versions; their files are not.
prepare_root() {
    local package
    mkdir -p "$root"/var/lib/dpkg/{info,updates}
    for deb in "$work"/*.deb; do
        dpkg -f "$deb" Depends | tr ',' '\n' | sed -n 's/^ *\([a-z0-9.+-]\+\).*/\1/p'
    done | sort -u | while read -r package; do
        [[ -e $(echo "$work/${package}"_*.deb) ]] || { dpkg-query -s "$package" && echo; }
    done >"$root/var/lib/dpkg/status"
}

in_root() {
    dpkg --root="$root" --force-not-root --log="$work/log" "$@" >"$work/said" 2>&1 || {
        cat "$work/said" >&2
        exit 1
    }
}

files() {
    (cd "$root" && find . ! -path './var/lib/dpkg/*' | sort && ls var/lib/dpkg/info/*orv* 2>/dev/null)
    grep '^Package:' "$root/var/lib/dpkg/status"
}

# The README's host, by pkg-config.
build_small_host() {
    sed -n '/^```c$/,/^```$/{/^```/!p}' "$doc-doc/README.md" >host.c
    local flags
    read -ra flags <<<"$(PKG_CONFIG_LIBDIR=$libraries/pkgconfig pkg-config --cflags --libs orvinterpreter)"
    cc host.c "${flags[@]}" -o host
    echo '<?echo $var:user?>' >index.htm
    check "the README's host" Ann "$(./host)"
}

# The same with the archive, which needs no library of ours at run time.
build_static_host() {
    cc host.c -I"$root/usr/include" "$libraries/liborvinterpreter.a" -o static
    check "the README's host, static" Ann "$(LD_LIBRARY_PATH='' ./static)"
}

# The example host, by CMake.
build_example_host() {
    local examples=$doc-dev/examples
    mkdir etc
    {
        cmake -S "$examples" -B zarn -DCMAKE_PREFIX_PATH="$root/usr" &&
            cmake --build zarn -j "$(nproc)" &&
            "$root/usr/bin/orv-textdb" build -o etc/htmltext.db "$examples/site/texts/en.po"
    } &>log || cat log >&2
    REQUEST_METHOD=GET PATH_INFO=/login.htm ZARN_DOCROOT=$examples/site ZARN_DB=$PWD/router.db \
        ZARN_SESSIONS=$PWD/sessions ZARN_ROOT=$PWD zarn/zarn >page 2>>log || cat log >&2
    check 'the example host' '1 <title>Sign in - Fjord R4</title>' \
        "$(grep -c '^Status: 200' page) $(grep -o '<title>.*' page)"
}

# The other hosts, as each says at its top how it is built; they run as in the test of that name.
# And the document that leads to the first page.
build_hosts() {
    local source line
    cp -r "$doc-dev/examples/hosts" .
    cd hosts
    export PKG_CONFIG_PATH=$libraries/pkgconfig CPATH=$root/usr/include LIBRARY_PATH=$libraries
    for source in smallest/host.c *.c; do
        line=$(sed -n 's/^ \* *\(cc .*\)/\1/p' "$source")
        (cd "$(dirname "$source")" && eval "$line") || check "$source" 0 $?
    done
    mkdir programs
    mv smallest/smallest cgi fastcgi server programs
    "$tests/hosts.py" . "$doc-doc/README.md" programs "$root/usr/bin/orv-textdb" || check hosts 0 $?
    sed -n '/^```sh$/,/^```$/{/^```/!p}' "$doc-doc/docs/hosts.md" | sed "s|/usr/share|$root/usr/share|" >steps
    check 'the examples, step by step' '<p>Good day Ann!</p>' \
        "$(PATH=$root/usr/bin:$PATH bash -e steps 2>said | grep Good || cat said)"
    mkdir first
    cd first
    PATH=$root/usr/bin:$PATH "$tests/first_page.py" "$doc-doc/docs/first-page.md" || check 'the first page' 0 $?
    cd ../..
}

# The settings are asked as Buildroot asks them, and the recipe is read with a stand-in for
# what Buildroot makes of it.
check_buildroot() {
    export BR2_EXTERNAL_ORVINTERPRETER_PATH=$packaging/buildroot
    for symbol in BR2_USE_MMU BR2_INSTALL_LIBSTDCXX BR2_TOOLCHAIN_GCC_AT_LEAST_11; do
        printf 'config %s\n\tdef_bool y\n' $symbol
    done >Config.in
    cat >>Config.in <<'END'
config BR2_EXTERNAL_ORVINTERPRETER_PATH
	string
	option env="BR2_EXTERNAL_ORVINTERPRETER_PATH"
source "$BR2_EXTERNAL_ORVINTERPRETER_PATH/Config.in"
END
    CONFIG_='' KCONFIG_CONFIG=$work/config kconfig-conf --allyesconfig Config.in &>said || cat said >&2
    check 'settings of the recipe' BR2_PACKAGE_ORVINTERPRETER=y "$(grep PACKAGE config)"
    cat >Makefile <<'END'
cmake-package = $(info $(ORVINTERPRETER_VERSION) $(wildcard $(ORVINTERPRETER_SITE)/CMakeLists.txt))
host-cmake-package = $(info host $(HOST_ORVINTERPRETER_BUILD_OPTS))
include $(BR2_EXTERNAL_ORVINTERPRETER_PATH)/external.mk
all:;
END
    check 'the recipe for Buildroot' \
        "$version $packaging/buildroot/../../CMakeLists.txt"$'\nhost orv-textdb' \
        "$(make --warn-undefined-variables -s 2>&1)"
}

# OpenWrt's makefiles with a stand-in for what they make of the recipe.
check_openwrt() {
    mkdir -p rules
    echo 'INCLUDE_DIR = rules' >rules/rules.mk
    echo 'BuildPackage = $(info $(1) $(PKG_VERSION) $(CMAKE_OPTIONS)$(call Package/$(1)/install,root))' \
        >rules/package.mk
    printf '%s\n' 'INSTALL_DIR = mkdir' 'CP = cp' 'PKG_INSTALL_DIR = made' >rules/cmake.mk
    check 'the recipe for OpenWrt' "liborvinterpreter $version" "$(make --warn-undefined-variables \
        -s TOPDIR=rules -f "$packaging/openwrt/orvinterpreter/Makefile" 2>&1 | grep -o '^libo[^ ]* [^ ]*\|.*rror.*\|.*arn.*')"
}

# A recipe consists of settings and what it inherits.
check_yocto() {
    local recipe=$packaging/yocto/orvinterpreter_$version.bb
    check 'the recipe for Yocto' '' "$(grep -vE \
        '^([A-Z_]+(\[[a-z0-9]+\]|(:append)?:class-native)? = "[^"]*"|inherit [a-z ]+|#.*)?$' "$recipe" 2>&1)"
}

cd "$work"
cpack --config "$build/CPackConfig.cmake" -G DEB -D CPACK_DEBIAN_COMPRESSION_TYPE=gzip \
    -B "$work" &>"$work/said" || {
    cat "$work/said" >&2
    exit 1
}
lintian --allow-root --fail-on error,warning ./*.deb >&2 &
linting=$!
prepare_root
before=$(files)
in_root -i ./*.deb
for deb in ./*.deb; do
    kind=foreign
    [[ $deb == ./orv* || $deb == *-doc_* ]] || kind=same
    check "$deb: beside other machines'" $kind "$(dpkg-deb -f "$deb" Multi-Arch)"
done
id=$(readelf -n "$build/liborvinterpreter.so" | sed -n 's/.*Build ID: //p')
check "a debugger's package" 1 "$(dpkg-deb -c liborvinterpreter1-dbgsym_*.ddeb | grep -c "/${id:0:2}/${id:2}.debug$")"
check 'five packages' 5 "$(grep -c ' status installed ' "$work/log")"
version=$(dpkg-deb -f "$(echo liborvinterpreter1_*.deb)" Version)
version=${version%-*}
libraries=$(echo "$root"/usr/lib/*/)
doc=$root/usr/share/doc/liborvinterpreter
export LD_LIBRARY_PATH=$libraries
build_small_host
build_static_host
build_example_host
build_hosts
for page in orv-{render,textdb,check,preview}.1 orvinterpreter.3 Orv_Interpreter_Run.3 orv-templates.7; do
    name=${page%.*}
    check "$page" 1 "$(zgrep -ic "^\.TH \"\?${name/Orv_I*/orvinterpreter}" \
        "$root/usr/share/man/man${page##*.}/$page.gz")"
    check "$page as it is read" '' "$(zcat "$root/usr/share/man/man${page##*.}/$page.gz" | mandoc -Tlint -Wwarning)"
    [[ $page == *.1 ]] || continue
    check "$name" "$name" "$("$root/usr/bin/$name" --version | cut -d' ' -f1)"
    check "$name's completion" 3 "$(find "$root"/usr/share/{bash-completion,fish,zsh} -name "*$name*" | wc -l)"
done
wait "$linting" || check lintian 0 $?
mapfile -t names < <(for deb in ./*.deb; do dpkg-deb -f "$deb" Package; done)
in_root --purge "${names[@]}"
check 'nothing is left' "$before" "$(files)"
check_buildroot
check_openwrt
check_yocto
check 'the extension for Visual Studio Code' "$version" \
    "$(sed -n 's/^  "version": "\(.*\)",/\1/p' "$tests/../editors/vscode/package.json")"
check "the README's archive" "$version" "$(sed -n 's/.*orvinterpreter-\([0-9.]*\)\.tar\.xz.*/\1/p' "$tests/../README.md")"
exit $failed
