# A tour of the lexctl3 script language: variables, procedures, loops,
# threads, timers and a tee file. Run it with:  lexctl3 --script examples/demo.lex
tee demo-output.txt
setvar greeting Hello
setvar target "script writer"
echo {{greeting}}, {{target}}!
echo Missing variables fall back to a default: {{colour:blue}}

/*
Procedures are stretches of the script, called by name
and repeated with loop.
*/
proc begin visit
setvar visits {{UNIQ}}
echo visit number {{visits}} on thread {{TNAME}}
proc end

timer start demo "demo timer"
loop visit count 3
timer lap demo
@echo (the @ prefix runs a line without echoing it)
echo Tabs\tand "quoted   blanks" are kept as written.

# Threads run scripts side by side; they share variables.
threads start worker examples/worker.lex
threads join worker
echo The worker left a message: {{worker_message}}

# The server: lexsim when run from scripts/demo.sh, which sets {{server}};
# a default after ":" cannot itself hold a colon, hence "localhost" alone.
setopt server {{server:localhost}}
versions
test -string "Hello, Lexary" -number 42
setopt userid admin
setopt passwd admin
pwhash -h
creates full
test -string "signed with the session token"
ends

timer stop demo
timer tell demo
setvar
tee
echo Everything above was copied to demo-output.txt.
