-- logout.sql - ends the session.
delete from sessions.session where number = :sid;
