// Shows the name of the chosen file in the page's own words beside the file input, whose native text
// is in the browser's language.

function showFileName(input) {
    const place = input.closest('.file')?.querySelector('.chosen');
    if (place) {
        place.textContent = input.files.length > 0 ? input.files[0].name : place.dataset.none;
    }
}

// Uploads replace the form, so single inputs are not watched.
document.addEventListener('change', event => {
    if (event.target.type === 'file') {
        showFileName(event.target);
    }
});
// Browsers keep the chosen file when they go back to a page.
window.addEventListener('pageshow', () => {
    document.querySelectorAll('.file > input').forEach(showFileName);
});
