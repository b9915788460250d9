# Shared by the stand-in tools. Each records the command line it was given in commands.log and where
# its standard output goes in outputs.log (so a test can check that the file was removed afterwards),
# then prints the reply the test stored under the command line's key: the line with every character
# other than letters, digits, '.' and '-' turned into '_'. No stored reply means no output.
fake_run() {
    printf '%s\n' "$*" >> "$ZOR_FAKE_DIR/commands.log"
    target=$(readlink "/proc/$$/fd/1")  # read before any redirection of our own is in place
    printf '%s\n' "$target" >> "$ZOR_FAKE_DIR/outputs.log"
    key=$(printf '%s' "$*" | tr -c 'A-Za-z0-9.-' '_')
    if [ -f "$ZOR_FAKE_DIR/replies/$key" ]; then
        cat "$ZOR_FAKE_DIR/replies/$key"
    fi
}
