<?-- The web program's error. Error commands do not escape the message: it takes the
     way through a variable to echo. ?><?setvariable var:page[error] <?error message ?>?><div class="error" role="alert">
<h2>{?site.error?}</h2>
<p><?echo $var:page[error]?></p>
</div>
