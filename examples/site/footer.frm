</main>
<?if neq $var:outside 1 `<p class="error" id="stale" aria-live="assertive" hidden data-ended="{?site.live.ended?}" data-lost="{?site.live.lost?}"></p>
<footer>
<p><?query 'select model, firmware, serial from status' '$11 - {?site.firmware?} $12 - {?site.serial?} $13'?></p>
</footer>
`?></body>
</html>
