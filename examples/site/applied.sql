-- applied.sql - the device has this now.
update setting set applied = :value where name = :name;
