#compdef velora-log

local -a commands filter levels
commands=(
    'archives:list the archives in a folder'
    'show:print records of log files in the order of time'
    'follow:print records as they are logged, across rotations'
    'stats:count records by level and time'
    'decode:decode lines that are Base64'
    'prune:remove the oldest archives in a folder'
    'purge:remove all archives in a folder'
)

if ((CURRENT == 2)); then
    if [[ $PREFIX == -* ]]; then
        compadd -- --help --version
    else
        _describe command commands
    fi
    return
fi

levels=(verbose debug info notice warning error severe alert emergency)
filter=(
    "--level=[this level and more severe ones]:level:($levels)"
    '--since=[logged then or later]:date, time or duration'
    '--until=[logged then or earlier]:date, time or duration'
    '--grep=[records that hold a text]:text'
    '--regex=[records that match]:extended regular expression'
    '--file=[records of a source file]:name'
    '--thread=[records of a thread]:name'
    '--archive-folder=[where the archives lie]:folder:_directories'
    '--color=[colour levels]:when:(auto always never)'
    '--help'
)
shift words
((CURRENT--))
case ${words[1]} in
    show) _arguments $filter '--archives[read the archives, too]' '*:file:_files' ;;
    stats) _arguments $filter '--archives[read the archives, too]' '--every=[time of one bar]:duration' '*:file:_files' ;;
    follow) _arguments $filter {-n,--lines=}'[last lines to begin with]:number:' ':file:_files' ;;
    decode) _arguments '--help' '*:file:_files' ;;
    archives) _arguments '--identifier=[of one destination]:identifier' '--help' ':folder:_directories' ;;
    prune) _arguments '--keep=[how many to keep]:number' '--identifier=[of one destination]:identifier' \
        '--dry-run[only print]' '--help' ':folder:_directories' ;;
    purge) _arguments '--identifier=[of one destination]:identifier' '--dry-run[only print]' '--help' \
        ':folder:_directories' ;;
esac
