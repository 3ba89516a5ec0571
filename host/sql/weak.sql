-- weak.sql - the passwords that are tried first, of eight characters or more, in small letters.
create temp table weak (word text primary key);
insert into weak values ('password'), ('password1'), ('password123'), ('passw0rd'), ('p@ssw0rd'),
    ('12345678'), ('123456789'), ('1234567890'), ('87654321'), ('11111111'), ('00000000'),
    ('88888888'), ('12341234'), ('1q2w3e4r'), ('1qaz2wsx'), ('q1w2e3r4'), ('qwertyui'),
    ('qwerty12'), ('qwerty123'), ('qwertyuiop'), ('qwertz123'), ('asdfghjk'), ('asdfasdf'),
    ('abcd1234'), ('abc12345'), ('abcdefgh'), ('aa123456'), ('iloveyou'), ('letmein1'),
    ('welcome1'), ('sunshine'), ('princess'), ('football'), ('baseball'), ('superman'),
    ('trustno1'), ('changeme'), ('admin123'), ('admin1234'), ('administrator'), ('passwort'),
    ('passwort1'), ('internet'), ('computer'), ('schatzi1'), ('hallo123');
