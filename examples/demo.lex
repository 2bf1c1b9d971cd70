# A short tour of lexctl3. scripts/demo.sh runs it against lexsim and sets
# {{server}}; against a server of your own, in a scratch folder:
#   lexctl3 "setvar server https://HOST:PORT" --script demo.lex
tee demo-output.txt
@setopt server {{server:localhost}}
@setopt userid admin
@setopt passwd admin
versions

; Translate a sentence, then a text file line by line (into tour-notes.txn.txt)
text "The old cat sleeps."
tfile tour-notes.txt

; Look a word up
lookup cat

; As the administrator: a new user, and a dictionary of her own
ucreate alice -userPass alice-pw -userName "Alice Example"
dcreate -runas alice -subject Travel -display "en=Travel words"
dadd LAST -runas alice "ticket = 切符 [noun]"
dimport LAST -runas alice tour-words.txt
dexport LAST -runas alice alice-travel
; The new entries translate for her
text -simple -runas alice "The train ticket is at the station."
; A script that re-creates alice with her dictionary, for a backup
udump alice

; The script language: variables, procedures, loops, threads and timers
setvar greeting Hello
proc begin visit
setvar visits {{UNIQ}}
echo {{greeting}} from visit {{visits}} on thread {{TNAME}}
proc end
timer start tour "the tour"
loop visit count 2
threads start worker worker.lex
threads join worker
echo The worker left a message: {{worker_message}}
timer stop tour
timer tell tour
tee
echo Everything above was copied to demo-output.txt.
