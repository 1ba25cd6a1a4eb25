# Completion of the tool corvane for bash; made by: corvane completion
_corvane() {
  local current=${COMP_WORDS[COMP_CWORD]} words
  case ${COMP_WORDS[1]} in
    pack) words="--help -h --output -o --type --fl --mean --scale --raw" ;;
    info) words="--help -h --check --rtol --atol" ;;
    run) words="--help -h --config -c --model --kind --pixel-type --means --scales --resize --template --exif --landmarks --output --json --npy --expect --rtol --atol --show --quiet -q" ;;
    compare) words="--help -h --rtol --atol --json" ;;
    explain) words="--help -h --expect --expect-input --config -c --model --kind --pixel-type --means --scales --resize --template --exif --landmarks" ;;
    kinds) words="--help -h --config -c --model --kind --pixel-type --means --scales --resize --template --exif --landmarks" ;;
    align) words="--help -h --landmarks --template --output -o" ;;
    doctor) words="--help -h --json --limit --root" ;;
    bench) words="--help -h --config -c --kind --pixel-type --means --scales --parallel --seconds --limit --json --compare" ;;
    record) words="--help -h --output -o --every --frames --max-bytes" ;;
    replay) words="--help -h --times" ;;
    manual) words="--help -h" ;;
    completion) words="--help -h" ;;
    *) words="--help -h --version pack info run compare explain kinds align doctor bench record replay manual completion" ;;
  esac
  [ "$COMP_CWORD" -eq 1 ] && words="--help -h --version pack info run compare explain kinds align doctor bench record replay manual completion"
  case $current in
    -*) mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current") ;;
    *) if [ "$COMP_CWORD" -eq 1 ]; then
         mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
       else
         mapfile -t COMPREPLY < <(compgen -f -- "$current")
       fi ;;
  esac
}
complete -o filenames -F _corvane corvane
