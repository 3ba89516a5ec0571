-- turn.sql - the part of a script that is about to look at a password: proof says whether it will,
-- and which field has it. A try that must wait anyway costs nothing; of many that have waited for
-- their turn together each meets what the one before has left.
select field, 'site.login.bad.wait' from proof, sessions.login_wait where address = :address;
update proof set turn = password_turn();
select field, 'site.login.bad.wait' from proof, sessions.login_wait where address = :address;
