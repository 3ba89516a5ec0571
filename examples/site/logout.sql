-- logout.sql - ends the session.
delete from session where number = :sid;
