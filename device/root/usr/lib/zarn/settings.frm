<?multiquerytext 'select name, value from setting' `$1=$2
`?>
