-- database-02.sql - how long an address stays with a device that is away.
insert into setting (name, part, kind, least, most, factory) values
    ('lease', 'addresses', 'number', 1, 168, '24');
pragma user_version = 2;
