const lines = document.getElementById("recording").textContent.trim().split("\n");
document.getElementById("events").textContent = `${lines.length} events`;
