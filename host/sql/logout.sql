-- logout.sql - ends the session, or another one of the owner's.
delete from sessions.session where number = ifnull(:session, :sid);
insert into sessions.waiting_event (level, source, code, detail)
    select 'info', 'system', 'signout', ifnull(:address, '') where changes() > 0;
select 'done', 'site.session.ended', 'password.htm' where :session <> :sid;
