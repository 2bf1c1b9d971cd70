# Started by demo.lex: a thread is silent on the console unless it asks.
setvar worker_message "hello from thread {{TID}} ({{TNAME}})"
