// Shows the local time in the page title bar once a second.
function showClock() {
  const now = new Date();
  document.title = "Live timing " + now.toLocaleTimeString();
}
setInterval(showClock, 1000);
