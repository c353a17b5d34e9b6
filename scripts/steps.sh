# The steps of ./start and ./check: each is announced, timed, and remembered when it fails. Sourced.

jobs=$(nproc 2>/dev/null || echo 2)
started=$SECONDS
failed_steps=()
step_times=()

# step TITLE COMMAND...: runs a step; its status is the command's.
step() {
  local title=$1 begin=$SECONDS status=0
  shift
  printf '\n== %s\n' "$title"
  "$@" </dev/null || status=$?
  step_times+=("$(printf '%5d s  %s' $((SECONDS - begin)) "$title")")
  if [ $status -ne 0 ]; then
    failed_steps+=("$title")
    printf '== failed: %s\n' "$title"
  fi
  return $status
}

# build PRESET [TARGET...]: configures and builds. Compiler output is shown where there is any.
build() {
  local preset=$1 log
  shift
  log=build/$preset-configure.log
  mkdir -p build
  cmake --preset "$preset" "${configure_options[@]}" >"$log" 2>&1 || { cat "$log"; return 1; }
  local targets=() quiet=()
  [ $# -gt 0 ] && targets=(--target "$@")
  [ -t 1 ] || quiet=(-- --quiet)
  cmake --build --preset "$preset" -j "$jobs" "${targets[@]}" "${quiet[@]}"
}
configure_options=()
