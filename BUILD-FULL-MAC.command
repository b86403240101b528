#!/bin/bash
# Builds the complete application on a Mac: with Qt and a release inside, signed ad hoc and tested.
# Double-click it in Finder, or run it in Terminal with a release of your own:
#
#   ./BUILD-FULL-MAC.command [--image MERGED.bin --name NAME --version VERSION [--accept-header-rewrite]]
#                            [--use-installed-qt]
#
#   --image, --name, --version   the release to embed (default: the sample, which is not firmware)
#   --accept-header-rewrite      accept an image whose header the flashing tool will change
#   --use-installed-qt           use Homebrew's Qt in place; the application then runs on this Mac only
#   --system-root DIR            look below DIR for the fixed paths of macOS and Homebrew (for tests)
#
# Each step prints one line. A step that fails says what to run next. The application of an earlier run stays if a step
# fails or the command is interrupted. If the command is killed, the next run restores that application.
# Status: 0 built, 1 a step failed, 2 wrong command line, 128 plus the number of the signal that interrupted it.
#
# Written for bash 3.2, the version of macOS. No errexit: each step reports its own result.
set -uo pipefail
unset CDPATH # it would make cd print

oldest_qt=6.9.2 # older ones need the AGL framework, which the SDK of macOS 26 no longer has
oldest_macos_of_homebrew=14 # the oldest macOS for which Homebrew has a compiled Qt
tool_package='platformio/tool-esptoolpy@~1.40501.0' # esptool 4.5.1, which imports pyserial and nothing else

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P) || exit 1
image=
name=
version=
accept_rewrite=
deploys_qt=yes
system_root=

work=$here/build/macos
tree=$work/tree
log=$work/build.log
bundle_name='QELMO Varnox Flasher.app'
finished=$work/$bundle_name
arriving=$work/arriving # the new application, on the same file system as the finished one
previous=$work/previous # the application of an earlier run, while the new one replaces it
temporary=              # where the new application is made
app=

# ---- the report of a step ----

step= # the step that is running

begin() {
    step=$1
    printf '%s: ' "$step"
}

passed() {
    step=
    printf 'ok, %s\n' "$1"
}

# failed OUTCOME COMMAND [STATUS]: COMMAND is what the user should run next.
failed() {
    printf 'failed, %s\n  Next: %s\n' "$1" "$2"
    exit "${3:-1}"
}

# interrupted STATUS: after a signal. Bash waits for the program of the current step before it calls this.
interrupted() {
    trap '' HUP INT TERM
    [ -n "$step" ] || begin "Application"
    failed "interrupted" "$again" "$1"
}

logged() { "$@" >>"$log" 2>&1 </dev/null; }
last_words() { grep . "$log" | tail -n 1; }
last_line() { printf '%s\n' "$1" | grep . | tail -n 1; }

# ---- the command line ----

usage() {
    printf 'BUILD-FULL-MAC.command: %s\n' "$1" >&2
    printf 'usage: BUILD-FULL-MAC.command [%s [%s]] [%s]\n' '--image MERGED.bin --name NAME --version VERSION' \
        '--accept-header-rewrite' '--use-installed-qt' >&2
    exit 2
}

parse_arguments() {
    local option
    again=$(printf '%q ' "$here/BUILD-FULL-MAC.command" ${1+"$@"})
    again=${again% }
    while [ $# -gt 0 ]; do
        option=$1
        case $option in
            --use-installed-qt) deploys_qt=no; shift; continue ;;
            --accept-header-rewrite) accept_rewrite=$option; shift; continue ;;
            --image | --name | --version | --system-root) ;;
            *) usage "$option: unknown option" ;;
        esac
        if [ $# -lt 2 ] || [ -z "$2" ]; then usage "$option: the value is missing"; fi
        case $option in
            --image) image=$2 ;;
            --name) name=$2 ;;
            --version) version=$2 ;;
            --system-root) system_root=$2 ;;
        esac
        shift 2
    done
    [ -n "$image$name$version$accept_rewrite" ] || return 0
    if [ -z "$image" ] || [ -z "$name" ] || [ -z "$version" ]; then
        usage "--image, --name and --version belong together"
    fi
    case $image in /*) ;; *) image=$PWD/$image ;; esac
    if [ ! -f "$image" ] || [ ! -r "$image" ]; then usage "--image: there is no file to read at $image"; fi
}

# ---- the requirements ----

check_system() {
    begin "macOS"
    [ "$(uname -s)" = Darwin ] || failed "this is not a Mac" "./check"
    processor=$(uname -m)
    # Under Rosetta the compiler makes Intel programs, which cannot use the Qt of Homebrew for Apple processors.
    if [ "$processor" != arm64 ] && [ "$(sysctl -n hw.optional.arm64 2>/dev/null)" = 1 ]; then
        failed "this Terminal runs under Rosetta, as an Intel program" "arch -arm64 $again"
    fi
    macos=$(sw_vers -productVersion)
    passed "$macos"
}

# Runs before any other tool of Apple is used: without the command line tools, /usr/bin/python3 only opens a dialogue.
check_xcode_tools() {
    local folder output xcrun=$system_root/usr/bin/xcrun
    begin "Xcode command line tools"
    folder=$("$system_root/usr/bin/xcode-select" -p 2>/dev/null) || failed "not installed" "xcode-select --install"
    # Even if the licence is not accepted, xcrun may find the compiler. Starting the compiler then fails.
    if ! output=$({ "$xcrun" --find clang++ && "$xcrun" clang++ --version; } 2>&1); then
        case $output in
            *"not agreed to the Xcode license"*)
                failed "the licence of Xcode is not accepted yet" "sudo xcodebuild -license" ;;
            # After an upgrade of macOS.
            *"invalid active developer path (/Library/Developer/CommandLineTools)"*)
                failed "the tools are missing from $folder" "xcode-select --install" ;;
        esac
        failed "no compiler in $folder: $(last_line "$output")" "sudo xcode-select --reset"
    fi
    passed "$folder"
}

# A Terminal that Finder opens may have neither Homebrew nor PlatformIO in PATH, or may find an Intel Homebrew from an
# older Mac first.
set_search_path() {
    if [ "$processor" = arm64 ]; then PATH=$system_root/opt/homebrew/bin:$PATH; fi
    PATH=$PATH:$system_root/usr/local/bin:$HOME/.platformio/penv/bin
    export PATH HOMEBREW_NO_AUTO_UPDATE=1
    unset PLATFORMIO_CORE_DIR PLATFORMIO_PACKAGES_DIR # the application uses only the usual folder
}

check_homebrew() {
    local install="/bin/bash -c \"\$(curl -fsSL https://raw.githubusercontent.com/Homebrew/install/HEAD/install.sh)\""
    begin "Homebrew"
    command -v brew >/dev/null || failed "not installed" "$install"
    if [ "$processor" = arm64 ] && [ "$(brew --prefix 2>/dev/null)" = "$system_root/usr/local" ]; then
        failed "the Homebrew in $system_root/usr/local is for Intel processors, but this Mac has Apple's" "$install"
    fi
    passed "$(command -v brew)"
}

# Prints the installed version of a formula, or nothing if it is not installed. The newest of several versions is last.
installed_version() {
    local versions
    versions=$(brew list --versions "$1" 2>/dev/null) || return 0
    versions=${versions##* }
    printf '%s' "${versions%%_*}"
}

# is_at_least VERSION OLDEST, each of three numbers.
is_at_least() {
    local -a have want
    local i
    IFS=. read -r -a have <<<"$1"
    IFS=. read -r -a want <<<"$2"
    for i in 0 1 2; do
        [ "${have[$i]:-0}" -le "${want[$i]}" ] || return 0
        [ "${have[$i]:-0}" -ge "${want[$i]}" ] || return 1
    done
}

# A program counts wherever it comes from, because a second cmake would only cause a conflict.
missing_packages() {
    command -v cmake >/dev/null || printf ' cmake'
    command -v ninja >/dev/null || printf ' ninja'
    command -v rsvg-convert >/dev/null || printf ' librsvg'
    [ -n "$(installed_version cli11)" ] || printf ' cli11'
    [ -n "$(installed_version nlohmann-json)" ] || printf ' nlohmann-json'
    [ -n "$qt_version" ] || printf ' qtbase'
}

check_packages() {
    local missing
    begin "Homebrew packages"
    # Homebrew used to have all of Qt in one package.
    qt_formula=qtbase
    qt_version=$(installed_version qtbase)
    if [ -z "$qt_version" ]; then
        qt_formula=qt
        qt_version=$(installed_version qt)
    fi
    missing=$(missing_packages)
    is_at_least "$macos" "$oldest_macos_of_homebrew.0.0" || is_at_least "${qt_version:-0}" "$oldest_qt" ||
        failed "Homebrew's Qt needs macOS $oldest_macos_of_homebrew, and this is $macos" "softwareupdate --list"
    [ -z "$missing" ] || failed "missing:$missing" "brew install$missing"
    is_at_least "$qt_version" "$oldest_qt" ||
        failed "Qt $qt_version is too old; $oldest_qt or newer is needed" "brew upgrade $qt_formula"
    # Homebrew prints a folder even for a package that is not installed.
    qt=$(brew --prefix "$qt_formula" 2>/dev/null)
    [ -d "$qt/lib/cmake/Qt6" ] ||
        failed "the development files of Qt are missing in $qt" "brew reinstall $qt_formula"
    passed "Qt $qt_version in $qt"
}

open_log() {
    mkdir -p "$work" 2>/dev/null && : 2>/dev/null >"$log" && return
    begin "Build folder"
    failed "cannot write in $work" "ls -la \"$here\""
}

install_tool() {
    local path=$HOME/.platformio/packages/tool-esptoolpy other
    begin "PlatformIO's esptool"
    tool=$path/esptool.py
    if [ -r "$tool" ]; then
        passed "$tool"
        return
    fi
    for other in "$path"@*; do
        [ ! -e "$path" ] && accepts_verify "$other/esptool.py" &&
            failed "a suitable version is there under another folder name" "mv \"$other\" \"$path\""
    done
    command -v pio >/dev/null ||
        failed "esptool is missing, and so is PlatformIO, which installs it" "brew install platformio"
    logged pio pkg install -g -t "$tool_package" ||
        failed "PlatformIO did not install it: $(last_words)" "pio pkg install -g -t \"$tool_package\""
    [ -r "$tool" ] ||
        failed "PlatformIO installed it, but not as $tool" "pio pkg install -g -f -t \"$tool_package\""
    passed "installed as $tool"
}

esptool() { "$system_root/usr/bin/python3" -B "$@" 2>&1 </dev/null; }

# Only prints the help of esptool, so no port is touched.
accepts_verify() {
    local help
    [ -r "$1" ] && help=$(esptool "$1" write_flash --help) || return 1
    case $help in *--verify*) ;; *) return 1 ;; esac
}

# PlatformIO keeps several versions in separate folders, and identifies them by their contents, not by the name of the
# folder.
refuse_version_5() {
    local path=${tool%/*}
    failed "esptool 5 removed --verify, which this application needs" \
        "mv \"$path\" \"$path@5\" && $again"
}

check_tool() {
    local python=$system_root/usr/bin/python3 output
    begin "esptool under Apple's Python"
    if ! output=$(esptool "$tool" version); then
        case $output in
            # Version 5 under Apple's Python 3.9.
            *"unsupported operand type(s) for |"* | *rich_click*) refuse_version_5 ;;
            *"No module named"* | *"yserial is not installed"*)
                failed "$(last_line "$output")" "\"$python\" -m pip install --user pyserial intelhex" ;;
        esac
        failed "it does not start: $(last_line "$output")" "pio pkg install -g -f -t \"$tool_package\""
    fi
    accepts_verify "$tool" || refuse_version_5
    passed "version $(last_line "$output"), accepts --verify"
}

# ---- the application ----

build() {
    begin "Build"
    (cd "$here" && logged cmake --preset release -B "$tree" -DQELMO_TESTS=OFF \
        "-DCMAKE_PREFIX_PATH=$qt;$(brew --prefix 2>/dev/null)") ||
        failed "the build cannot be configured" "less \"$log\""
    (cd "$here" && logged cmake --build "$tree" --target bundle QelmoFlasher QelmoWindow pack-release) ||
        failed "the application cannot be compiled" "less \"$log\""
    copy_bundle
    passed "$tree"
}

# The next steps change a copy, so that the next build finds its own files unchanged. The copy is in a temporary folder:
# in a folder that iCloud syncs (Desktop, Documents) files get attributes that codesign does not sign.
copy_bundle() {
    temporary=$(mktemp -d "${TMPDIR%/}/qelmo-varnox-build.XXXXXX" 2>>"$log") ||
        failed "there is no temporary folder: $(last_words)" "df -h \"$TMPDIR\""
    app=$temporary/$bundle_name
    logged cp -R "$tree/$bundle_name" "$temporary/" ||
        failed "its bundle cannot be copied: $(last_words)" "less \"$log\""
}

embed_release() {
    local resources=$app/Contents/Resources
    begin "Release"
    if [ -z "$image" ]; then
        passed "the sample, which is not firmware"
        return
    fi
    # Remove the sample first, because the packer keeps what it replaces.
    rm -f "$resources"/*.bin "$resources/qelmo-varnox-flash-manifest.json"
    logged "$tree/tools/pack-release" --bundle "$app" --image "$image" --name "$name" --version "$version" \
        ${accept_rewrite:+"$accept_rewrite"} ||
        failed "$(last_words)" "\"$tree/tools/pack-release\" --help"
    passed "$name $version"
}

# The window library links Qt; the executable does not. Passing the library as an executable also makes macdeployqt
# write references relative to each library instead of to the program. macdeployqt exits with 0 even if it could not
# find something.
deploy_qt() {
    local settled
    begin "Qt in the bundle"
    if [ "$deploys_qt" = no ]; then
        passed "left in $qt; the application runs on this Mac only"
        return
    fi
    logged "$qt/bin/macdeployqt" "$app" -executable="$app/Contents/Frameworks/libQelmoWindow.dylib" ||
        failed "macdeployqt: $(last_words)" "$again --use-installed-qt"
    [ -f "$app/Contents/PlugIns/platforms/libqcocoa.dylib" ] ||
        failed "macdeployqt left out Qt's plugin for macOS: $(last_words)" \
            "$again --use-installed-qt"
    settled=$("$system_root/usr/bin/python3" -B "$here/tools/macos/settle-bundle" "$app" 2>>"$log") ||
        failed "$(last_words)" "$again --use-installed-qt"
    passed "$settled"
}

# Signs last, because every later change in the bundle breaks the signature.
sign() {
    begin "Signature"
    # Removes the attributes of iCloud. If one cannot be removed, codesign reports it.
    logged xattr -cr "$app"
    logged codesign --force --deep --sign - "$app" || failed "$(last_words)" "less \"$log\""
    logged codesign --verify --deep --strict "$app" ||
        failed "the signature is not valid: $(last_words)" "less \"$log\""
    passed "ad hoc"
}

self_test() {
    begin "$1"
    logged "$app/Contents/MacOS/QelmoFlasher" "$2" || failed "$(last_words)" "less \"$log\""
    passed "$3"
}

# If an earlier run was killed between the two moves below, its application is put back.
recover() {
    local said
    [ -e "$previous" ] || return 0
    if [ -e "$finished" ]; then
        said=$(rm -rf "$previous" 2>&1) && return
    else
        said=$(mv "$previous" "$finished" 2>&1) && return
    fi
    begin "Application"
    failed "the application of an earlier run is still in $previous: $(last_line "$said")" "ls -la \"$work\""
}

clean_up() {
    trap '' HUP INT TERM
    rm -rf ${temporary:+"$temporary"} "$arriving"
}

# The signature is not verified again at the new place: iCloud may add attributes at any time, and the files do not
# change.
finish() {
    begin "Application"
    rm -rf "$arriving" # left by a killed run
    logged mv "$app" "$arriving" || failed "$(last_words)" "df -h \"$work\""
    # No signal may interrupt the two renames, not even in mv itself.
    trap '' HUP INT TERM
    if [ -e "$finished" ]; then
        logged mv "$finished" "$previous" || failed "$(last_words)" "ls -la \"$work\""
    fi
    if ! logged mv "$arriving" "$finished"; then
        [ ! -e "$previous" ] || logged mv "$previous" "$finished" ||
            failed "the application of the earlier run is in $previous" "mv \"$previous\" \"$finished\""
        failed "$(last_words)" "ls -la \"$work\""
    fi
    rm -rf "$previous"
    passed "$finished"
}

parse_arguments ${1+"$@"} # some old versions of bash treat an empty "$@" as unset
TMPDIR=${TMPDIR:-/tmp}
trap clean_up EXIT
trap 'interrupted 129' HUP
trap 'interrupted 130' INT
trap 'interrupted 143' TERM
recover

check_system
check_xcode_tools
set_search_path
check_homebrew
check_packages
open_log
install_tool
check_tool
build
embed_release
deploy_qt
sign
self_test "Self-test" --self-test "the release and the tool are in order"
self_test "Window self-test" --window-self-test "the window opens"
finish
